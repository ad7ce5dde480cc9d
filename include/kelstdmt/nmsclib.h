// The client of a name server: records of named texts, and the requests about them.
//
// Each request is a connection of its own; a proxy holds none between them and is for one thread at a time.
// What comes from the name server is checked before memory is taken for it, and one that falls silent, takes
// nothing, sends less than 4 KB within kel::name_service_patience() seconds or records without end is given
// up.
#pragma once

#include <iosfwd>

#include <kelstdmt/declare.h>
#include <kelstdmt/export.h>
#include <kelstdmt/netlib_stream.h>
#include <kelstdmt/nmsclib_exceptions.h>
#include <kelstdmt/vumrt_names.h>
#include <kelstdmt/vumtext.h>
#include <kelstdmt/xbasic.h>

// The limits of a record: 256 each, or a smaller number above 0 that the machine's registry has in a value of
// the name below the key. A null pointer or marker as key: 256.
class KELSTDMT_API nmsRecordLimits {
public:
    static int GetNumberOfFields(const char *key);  // value "MaxNumFields": fields of a record
    static int GetFieldNameLength(
        const char *key);  // value "FieldNameMaxLength": bytes of a name and one more
    static int GetFieldValueLength(const char *key);  // value "FieldValueMaxLength": the same for a value
};

KEL_DECLARE_STRUCT(nmsRecord)
class KELSTDMT_API nmsRecord : public xobject {
    KEL_CLASS(nmsRecord, xobject)
public:
    // 0: associated with no process; 1: with this one; else with the process of that id.
    explicit nmsRecord(unsigned associated);
    static nmsRecord *Create(int associated);

    xstringdictionary *getFields() { return &m_fields; }
    bool Add(const char *name, const char *value);  // sets or replaces: true
    bool HasField(const char *name);
    xstring GetFieldValueByName(const char *name);  // the null string for none
    // Whether every field of the template is here with an equal value; false for a null template.
    bool Match(nmsRecord *record_template);

    bool IsAssociated() const noexcept { return m_process != 0; }
    unsigned GetAssociatedId() const noexcept { return m_process; }
    bool IsAlive();  // the associated process exists

    // The record as it travels. False when it is beyond the limits, or what came is none; throws ioXStream.
    // The key path is that of nmsRecordLimits.
    bool Send(netSocketStream *&stream);
    bool Receive(netSocketStream *&stream, const char *limits_key);
    void Clear();  // not supported: reports an internal error and changes nothing

    kel::name_record GetWire();  // as it travels; fields without a value stay out
    void SetWire(const kel::name_record &wire);

private:
    xauto<xstringdictionary> m_fields;
    unsigned m_process;
};
KEL_SEQUENCE(nmsRecordArray, nmsRecord *)  // pointers only

enum nmscReturnCode : int {
    nmscSuccess = 0,
    nmscNoConnection = 2,
    nmscNotRecognized = 3,
    nmscAlreadyExists = 4,
    nmscNotFound = 5,
    nmscNotAuthorized = 6,
    nmscNotSent = 8
};
enum StatusOrigin : int { ClientOrigin = 0, ServerOrigin = 1 };

// The outcome of a request that failed.
class KELSTDMT_API nmsClientStatus {
public:
    nmsClientStatus(nmscReturnCode code, const char *host, int port, bool local, StatusOrigin origin);

    nmscReturnCode GetCode() const noexcept { return m_code; }
    StatusOrigin GetOrigin() const noexcept { return m_origin; }
    const char *GetHost() const noexcept { return m_host.Str(); }
    int GetPort() const noexcept { return m_port; }
    bool IsLocal() const noexcept { return m_local; }

private:
    nmscReturnCode m_code;
    dsString m_host;
    int m_port;
    bool m_local;
    StatusOrigin m_origin;
};
// One line.
KELSTDMT_API std::ostream &operator<<(std::ostream &out, const nmsClientStatus &status);

KEL_DECLARE_STRUCT(nmsServerProxy)
class KELSTDMT_API nmsServerProxy : public xobject {
    KEL_CLASS(nmsServerProxy, xobject)
public:
    ~nmsServerProxy() override;

    // Throw nmsXCantConnectLocal and nmsXCantConnectByName when no name server answers. The caller owns the
    // result. A null host is this one, but not as a local one.
    static nmsServerProxy *ConnectLocal();
    static nmsServerProxy *ConnectByName(const char *host);
    // The same without asking whether one is there.
    static nmsServerProxy *InitLocalProxy();
    static nmsServerProxy *InitProxy(const char *host);

    // Each throws the exception of its name when it fails, also for a null record or template.
    virtual void Register(nmsRecord *record);
    virtual int Delete(nmsRecord *record_template);             // how many were deleted
    virtual nmsRecordArray *Query(nmsRecord *record_template);  // the caller owns the array and its records
    virtual xstring GetVersion();
    virtual unsigned char IsAlive();
    virtual void Shutdown();

    // The same with a status, which the caller deletes; null on success.
    nmsClientStatus *Ping();
    nmsClientStatus *ImplRegister(nmsRecord &record);
    nmsClientStatus *ImplDelete(nmsRecord &record_template, int *count);
    nmsClientStatus *ImplQuery(nmsRecord &record_template, nmsRecordArray *records, int *count);
    nmsClientStatus *Version(nmsRecord &record);
    nmsClientStatus *ImplShutdown();

    xstring GetHost() const { return m_host; }

private:
    nmsServerProxy(const char *host, bool local);
    template <class Request>
    nmsClientStatus *Ask(Request request);
    nmsClientStatus *Failed(nmscReturnCode code, StatusOrigin origin = ClientOrigin) const;

    xstring m_host;
    bool m_local;
    int m_port = 0;  // of the last connection
};
KELSTDMT_API std::ostream &operator<<(std::ostream &out, const nmsServerProxy &proxy);  // the host

// 4 bytes, most significant first, whatever the stream's encoding.
KELSTDMT_API void PutIndependentInt(netSocketStream *stream, int value);
KELSTDMT_API int GetIndependentInt(netSocketStream *stream);
