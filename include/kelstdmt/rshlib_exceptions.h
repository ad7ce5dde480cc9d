// What a remote shell throws.
#pragma once

#include <optional>

#include <kelstdmt/declare.h>
#include <kelstdmt/export.h>
#include <kelstdmt/proclib.h>
#include <kelstdmt/xexception.h>
#include <kelstdmt/xstring.h>

enum rshError : int { rshNoDaemon, rshNoNameService, rshNoPermission, rshProtocolMismatch, rshDaemonError };
KEL_DECLARE_ENUM(rshError)

KEL_DECLARE_STRUCT(rshXException)
class KELSTDMT_API rshXException : public xthrowable {
    KEL_CLASS(rshXException, xthrowable)
public:
    static rshXException *Create(rshError error);
    [[noreturn]] static void Throw(rshError error);

    rshError getError() const noexcept { return m_error; }
    xstring getMsg() const { return getMsgImpl(); }

protected:
    explicit rshXException(rshError error) noexcept : m_error(error) {}
    virtual xstring getMsgImpl() const;  // by the error, such as "Name Server not found"

private:
    rshError m_error;
};

// The command could not be started.
KEL_DECLARE_STRUCT(rshXProcess)
class KELSTDMT_API rshXProcess : public rshXException {
    KEL_CLASS(rshXProcess, rshXException)
public:
    static rshXProcess *Create(rshError error, int create_error, const char *message);
    [[noreturn]] static void Throw(rshError error, int create_error, const char *message);

    pcCreateError getCreateError() const noexcept { return static_cast<pcCreateError>(m_create_error); }
    // As its field is read by way of the descriptor, which has no name for a server's other numbers.
    std::optional<pcCreateError> getNamedError() const noexcept;

protected:
    rshXProcess(rshError error, int create_error, const char *message);
    xstring getMsgImpl() const override;  // the server's text; that of the error when create_error is 0

private:
    int m_create_error;
    xstring m_message;
};

KEL_DECLARE_STRUCT(rshXServer)
class KELSTDMT_API rshXServer : public rshXException {
    KEL_CLASS(rshXServer, rshXException)
public:
    static rshXServer *Create(rshError error);
    [[noreturn]] static void Throw(rshError error);

protected:
    explicit rshXServer(rshError error) noexcept : rshXException(error) {}
};

// The host could not be reached, or would not serve.
KEL_DECLARE_STRUCT(rshXConnection)
class KELSTDMT_API rshXConnection : public rshXException {
    KEL_CLASS(rshXConnection, rshXException)
public:
    static rshXConnection *Create(rshError error);
    [[noreturn]] static void Throw(rshError error);

protected:
    explicit rshXConnection(rshError error) noexcept : rshXException(error) {}
};
