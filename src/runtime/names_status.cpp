#include "runtime/names_status.h"

namespace kel::system {

namespace {

struct status_text {
    name_status code;
    const char *text;
};
constexpr status_text texts[] = {
    {name_status::not_recognized, "request is not recognized."},
    {name_status::already_exists, "this record(s) already exists."},
    {name_status::not_found, "could not find matching record."},
    {name_status::not_authorized, "not authorized to perform this request."},
};

struct request_text {
    name_request request;
    const char *text;
};
constexpr request_text requests[] = {
    {name_request::ping, "ping"},   {name_request::add, "register"},      {name_request::remove, "delete"},
    {name_request::query, "query"}, {name_request::shutdown, "shutdown"}, {name_request::version, "version"},
};

std::string text_of(int code, const char *host, bool local, int port) {
    if (code == static_cast<int>(name_status::no_connection)) {
        std::string text = "could not connect to NameServer. (";
        text += local ? "LOCALHOST" : host;
        if (port != 0) text += ", port " + std::to_string(port);
        return text + ")";
    }
    for (const status_text &known : texts)
        if (static_cast<int>(known.code) == code) return known.text;
    return "internal error occured.";
}

}  // namespace

const char *name_request_text(name_request request) noexcept {
    for (const request_text &known : requests)
        if (known.request == request) return known.text;
    return "unknown";
}

std::string name_status_text(int code, int origin, const char *host, bool local, int port) {
    const char *reporter = origin == 1 ? "NameServer on client request: " : "NMS client: ";
    return std::string("ERROR  : ") + reporter + text_of(code, host, local, port);
}

}  // namespace kel::system
