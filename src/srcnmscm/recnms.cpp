// The record of the client module: a dictionary that becomes the name service's record on its way out, and is
// filled from one on its way in.
#include <kelstdmt/nmsclib.h>
#include <kelstdmt/vumrt_process.h>

#include "runtime/names_exchange.h"
#include "srcnmscm/wire.h"

namespace {

kel::name_record_limits limits_of(const char *key) {
    return {nmsRecordLimits::GetNumberOfFields(key), nmsRecordLimits::GetFieldNameLength(key),
            nmsRecordLimits::GetFieldValueLength(key)};
}

}  // namespace

nmsRecord::nmsRecord(unsigned associated) : m_process(kel::system::associated_process(associated)) {}

nmsRecord *nmsRecord::Create(int associated) {
    return kel::construct<nmsRecord>(static_cast<unsigned>(associated));
}

bool nmsRecord::Add(const char *name, const char *value) {
    m_fields.set(name, xstring(value));
    return true;
}
bool nmsRecord::HasField(const char *name) {
    return m_fields.haskey(name);
}
xstring nmsRecord::GetFieldValueByName(const char *name) {
    xstring value;
    return m_fields.find(name, value) ? value : xstring();
}

bool nmsRecord::Match(nmsRecord *record_template) {
    if (!record_template) return false;
    for (auto [name, wanted] : record_template->m_fields) {
        xstring value;
        if (!m_fields.find(name, value) || value != wanted) return false;
    }
    return true;
}

bool nmsRecord::IsAlive() {
    btkProcessHandle handle;
    if (!Process_Open(&handle, m_process)) return false;
    const bool runs = Process_CheckRunning(handle);
    Process_Free(handle);
    return runs;
}

kel::name_record nmsRecord::GetWire() {
    kel::name_record wire;
    wire.process = m_process;
    for (auto [name, value] : m_fields)
        if (kel::is_text(value)) wire.fields.emplace_back(name, static_cast<const char *>(value));
    return wire;
}

void nmsRecord::SetWire(const kel::name_record &wire) {
    m_fields.clear();
    m_process = wire.process;
    for (const auto &[name, value] : wire.fields)
        m_fields.set(name.c_str(), xstring(value.c_str()));
}

bool nmsRecord::Send(netSocketStream *&stream) {
    std::string bytes;
    if (!stream || !kel::append_record(bytes, GetWire(), limits_of(nullptr))) return false;
    return kel::detail::write_record(*stream, bytes);
}

bool nmsRecord::Receive(netSocketStream *&stream, const char *limits_key) {
    SetWire({});
    if (!stream) return false;
    kel::name_record_reader reader(limits_of(limits_key));
    if (!kel::detail::read_record(*stream, reader)) return false;
    SetWire(reader.take());
    return true;
}

void nmsRecord::Clear() {
    _Abort("nmsRecord::Clear not implemented.", "srcnmscm/recnms", __LINE__);
}
