// The exceptions of the client module.
#include <kelstdmt/nmsclib.h>

nmsXException *nmsXException::Create(const char *message, kelXFunc *func) {
    return kel::construct<nmsXException>(message, func);
}
void nmsXException::Throw(const char *message, kelXFunc *func) {
    xthrow(Create(message, func));
}

nmsXCantConnectLocal *nmsXCantConnectLocal::Create(const char *message, kelXFunc *func) {
    return kel::construct<nmsXCantConnectLocal>(message, func);
}
void nmsXCantConnectLocal::Throw(const char *message, kelXFunc *func) {
    xthrow(Create(message, func));
}

nmsXCantConnectByName::nmsXCantConnectByName(const char *server_name, const char *message, kelXFunc *func)
    : nmsXException(message, func), m_server_name(kel::detail::stored(server_name)) {}
nmsXCantConnectByName *nmsXCantConnectByName::Create(const char *server_name, const char *message,
                                                     kelXFunc *func) {
    return kel::construct<nmsXCantConnectByName>(server_name, message, func);
}
void nmsXCantConnectByName::Throw(const char *server_name, const char *message, kelXFunc *func) {
    xthrow(Create(server_name, message, func));
}

nmsXCantRegisterRecord::nmsXCantRegisterRecord(nmsRecord *record, const char *message, kelXFunc *func)
    : nmsXException(message, func), m_record(record) {}
nmsXCantRegisterRecord *nmsXCantRegisterRecord::Create(nmsRecord *record, const char *message,
                                                       kelXFunc *func) {
    return kel::construct<nmsXCantRegisterRecord>(record, message, func);
}
void nmsXCantRegisterRecord::Throw(nmsRecord *record, const char *message, kelXFunc *func) {
    xthrow(Create(record, message, func));
}

nmsXCantDelete::nmsXCantDelete(nmsRecord *record_template, const char *message, kelXFunc *func)
    : nmsXException(message, func), m_template(record_template) {}
nmsXCantDelete *nmsXCantDelete::Create(nmsRecord *record_template, const char *message, kelXFunc *func) {
    return kel::construct<nmsXCantDelete>(record_template, message, func);
}
void nmsXCantDelete::Throw(nmsRecord *record_template, const char *message, kelXFunc *func) {
    xthrow(Create(record_template, message, func));
}

nmsXCantQuery::nmsXCantQuery(nmsRecord *record_template, const char *message, kelXFunc *func)
    : nmsXException(message, func), m_template(record_template) {}
nmsXCantQuery *nmsXCantQuery::Create(nmsRecord *record_template, const char *message, kelXFunc *func) {
    return kel::construct<nmsXCantQuery>(record_template, message, func);
}
void nmsXCantQuery::Throw(nmsRecord *record_template, const char *message, kelXFunc *func) {
    xthrow(Create(record_template, message, func));
}

nmsXCantShutdown *nmsXCantShutdown::Create(const char *message, kelXFunc *func) {
    return kel::construct<nmsXCantShutdown>(message, func);
}
void nmsXCantShutdown::Throw(const char *message, kelXFunc *func) {
    xthrow(Create(message, func));
}

nmsXCantGetVersion *nmsXCantGetVersion::Create(const char *message, kelXFunc *func) {
    return kel::construct<nmsXCantGetVersion>(message, func);
}
void nmsXCantGetVersion::Throw(const char *message, kelXFunc *func) {
    xthrow(Create(message, func));
}
