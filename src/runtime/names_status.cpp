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
    switch (request) {
        case name_request::ping:
            return "ping";
        case name_request::add:
            return "register";
        case name_request::remove:
            return "delete";
        case name_request::query:
            return "query";
        case name_request::shutdown:
            return "shutdown";
        case name_request::version:
            return "version";
    }
    return "unknown";
}

std::string name_status_text(int code, int origin, const char *host, bool local, int port) {
    const char *reporter = origin == 1 ? "NameServer on client request: " : "NMS client: ";
    return std::string("ERROR  : ") + reporter + text_of(code, host, local, port);
}

}  // namespace kel::system
