// The plain functions of the name service.
#include <algorithm>
#include <cstdio>
#include <memory>

#include <kelstdmt/vumrt_names.h>
#include <kelstdmt/vumtext.h>

#include "runtime/names_exchange.h"
#include "runtime/names_status.h"

using kel::name_status;
using kel::system::asked_name_server, kel::system::name_outcome;

struct nmsServ {
    asked_name_server asked;
};

struct nmsRec {
    kel::name_record record;
};

struct nmsErr {
    int code;
    std::string text;
};

namespace {

// Null for a success.
nmsErr *error_of(const asked_name_server &server, const name_outcome &outcome) {
    if (outcome.is_success()) return nullptr;
    return new nmsErr{outcome.code,
                      kel::system::name_status_text(outcome.code, outcome.origin, server.host().c_str(),
                                                    server.is_local(), server.port())};
}
// What is found before anybody is asked.
nmsErr *error_of(const nmsServ *server, name_status code) {
    return error_of(server ? server->asked : asked_name_server("", false), {static_cast<int>(code)});
}

}  // namespace

// Name servers ---------------------------------------------------------------------------------

nmsServ *nmsServConnectLocal() {
    return new nmsServ{{"localhost", true}};
}
nmsServ *nmsServConnectByName(const char *host) {
    return kel::is_text(host) && *host ? new nmsServ{{host, false}} : nullptr;
}
void nmsServDelete(nmsServ *server) {
    delete server;
}

nmsErr *nmsServPing(nmsServ *server) {
    if (!server) return error_of(server, name_status::no_connection);
    return error_of(server->asked, server->asked.ping());
}

nmsErr *nmsServRegister(nmsServ *server, nmsRec *record) {
    if (!record) return error_of(server, name_status::not_sent);
    if (!server) return error_of(server, name_status::no_connection);
    return error_of(server->asked, server->asked.add(record->record));
}

nmsErr *nmsServRemove(nmsServ *server, nmsRec *record_template) {
    if (!server) return error_of(server, name_status::no_connection);
    if (!record_template) return error_of(server, name_status::not_sent);
    int deleted;
    return error_of(server->asked, server->asked.remove(record_template->record, deleted));
}

nmsErr *nmsServQuery(nmsServ *server, nmsRec *record_template, nmsRec ***records, int *count) {
    if (records) *records = nullptr;
    if (count) *count = 0;
    if (!server) return error_of(server, name_status::no_connection);
    if (!record_template) return error_of(server, name_status::not_sent);
    std::vector<kel::name_record> found;
    const name_outcome outcome = server->asked.query(record_template->record, found);
    if (!outcome.is_success()) return error_of(server->asked, outcome);
    if (count) *count = static_cast<int>(found.size());
    if (!records || found.empty()) return nullptr;
    std::vector<std::unique_ptr<nmsRec>> owned;
    owned.reserve(found.size());
    for (kel::name_record &record : found)
        owned.emplace_back(new nmsRec{std::move(record)});
    *records = new nmsRec *[owned.size()];
    std::transform(owned.begin(), owned.end(), *records,
                   [](std::unique_ptr<nmsRec> &record) { return record.release(); });
    return nullptr;
}

// Records --------------------------------------------------------------------------------------

nmsRec *nmsRecCreate(int associated) {
    auto *record = new nmsRec;
    record->record.process = kel::system::associated_process(static_cast<unsigned>(associated));
    return record;
}
void nmsRecDelete(nmsRec *record) {
    delete record;
}
void nmsRecArrayDelete(nmsRec **records, int count) {
    const std::unique_ptr<nmsRec *[]> array(records);
    for (int at = 0; records && at < count; ++at)
        delete records[at];
}
bool nmsRecAdd(nmsRec *record, const char *name, const char *value) {
    if (!record || !kel::is_text(name) || !kel::is_text(value)) return false;
    record->record.set(name, value);
    return true;
}
bool nmsRecHasField(nmsRec *record, const char *name) {
    return nmsRecGetFieldValueByName(record, name) != nullptr;
}
const char *nmsRecGetFieldValueByName(nmsRec *record, const char *name) {
    const std::string *value = record && kel::is_text(name) ? record->record.find(name) : nullptr;
    return value ? value->c_str() : nullptr;
}
void nmsRecPrint(nmsRec *record) {
    if (!record) return;
    for (const auto &[name, value] : record->record.fields)
        std::fprintf(stderr, "%s = %s\n", name.c_str(), value.c_str());
}

// Errors ---------------------------------------------------------------------------------------

int nmsErrGetCode(nmsErr *error) {
    return error ? error->code : 0;
}
void nmsErrPrint(nmsErr *error) {
    if (error) std::fprintf(stderr, "%s\n", error->text.c_str());
}
void nmsErrDelete(nmsErr *error) {
    delete error;
}
