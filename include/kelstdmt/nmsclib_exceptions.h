// What requests to a name server throw: a message, the operation that failed, and what it was about.
#pragma once

#include <kelstdmt/declare.h>
#include <kelstdmt/export.h>
#include <kelstdmt/xexception.h>

class nmsRecord;

KEL_DECLARE_STRUCT(nmsXException)
class KELSTDMT_API nmsXException : public kelXExternFunc {
    KEL_CLASS(nmsXException, kelXExternFunc)
public:
    using kelXExternFunc::kelXExternFunc;
    static nmsXException *Create(const char *message, kelXFunc *func);
    [[noreturn]] static void Throw(const char *message, kelXFunc *func);
};

KEL_DECLARE_STRUCT(nmsXCantConnectLocal)
class KELSTDMT_API nmsXCantConnectLocal : public nmsXException {
    KEL_CLASS(nmsXCantConnectLocal, nmsXException)
public:
    using nmsXException::nmsXException;
    static nmsXCantConnectLocal *Create(const char *message, kelXFunc *func);
    [[noreturn]] static void Throw(const char *message, kelXFunc *func);
};

KEL_DECLARE_STRUCT(nmsXCantConnectByName)
class KELSTDMT_API nmsXCantConnectByName : public nmsXException {
    KEL_CLASS(nmsXCantConnectByName, nmsXException)
public:
    nmsXCantConnectByName(const char *server_name, const char *message, kelXFunc *func);
    static nmsXCantConnectByName *Create(const char *server_name, const char *message, kelXFunc *func);
    [[noreturn]] static void Throw(const char *server_name, const char *message, kelXFunc *func);

    xstring getServerName() const { return m_server_name; }

private:
    xstring m_server_name;
};

// The record stays the caller's, and must live as long as the exception is asked for it.
KEL_DECLARE_STRUCT(nmsXCantRegisterRecord)
class KELSTDMT_API nmsXCantRegisterRecord : public nmsXException {
    KEL_CLASS(nmsXCantRegisterRecord, nmsXException)
public:
    nmsXCantRegisterRecord(nmsRecord *record, const char *message, kelXFunc *func);
    static nmsXCantRegisterRecord *Create(nmsRecord *record, const char *message, kelXFunc *func);
    [[noreturn]] static void Throw(nmsRecord *record, const char *message, kelXFunc *func);

    nmsRecord *getRecord() const noexcept { return m_record; }

private:
    nmsRecord *m_record;
};

// The template stays the caller's too.
KEL_DECLARE_STRUCT(nmsXCantDelete)
class KELSTDMT_API nmsXCantDelete : public nmsXException {
    KEL_CLASS(nmsXCantDelete, nmsXException)
public:
    nmsXCantDelete(nmsRecord *record_template, const char *message, kelXFunc *func);
    static nmsXCantDelete *Create(nmsRecord *record_template, const char *message, kelXFunc *func);
    [[noreturn]] static void Throw(nmsRecord *record_template, const char *message, kelXFunc *func);

    nmsRecord *getTemplate() const noexcept { return m_template; }

private:
    nmsRecord *m_template;
};

KEL_DECLARE_STRUCT(nmsXCantQuery)
class KELSTDMT_API nmsXCantQuery : public nmsXException {
    KEL_CLASS(nmsXCantQuery, nmsXException)
public:
    nmsXCantQuery(nmsRecord *record_template, const char *message, kelXFunc *func);
    static nmsXCantQuery *Create(nmsRecord *record_template, const char *message, kelXFunc *func);
    [[noreturn]] static void Throw(nmsRecord *record_template, const char *message, kelXFunc *func);

    nmsRecord *getTemplate() const noexcept { return m_template; }

private:
    nmsRecord *m_template;
};

KEL_DECLARE_STRUCT(nmsXCantShutdown)
class KELSTDMT_API nmsXCantShutdown : public nmsXException {
    KEL_CLASS(nmsXCantShutdown, nmsXException)
public:
    using nmsXException::nmsXException;
    static nmsXCantShutdown *Create(const char *message, kelXFunc *func);
    [[noreturn]] static void Throw(const char *message, kelXFunc *func);
};

KEL_DECLARE_STRUCT(nmsXCantGetVersion)
class KELSTDMT_API nmsXCantGetVersion : public nmsXException {
    KEL_CLASS(nmsXCantGetVersion, nmsXException)
public:
    using nmsXException::nmsXException;
    static nmsXCantGetVersion *Create(const char *message, kelXFunc *func);
    [[noreturn]] static void Throw(const char *message, kelXFunc *func);
};
