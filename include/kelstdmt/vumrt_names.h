// The name service of a host: records of named texts that servers register and clients look up.
//
// Here stand the record as it travels, once for clients and servers (doc/name-service.md has the bytes), and
// the plain functions by which the runtime reaches a name server. Each request is a connection of its own.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <kelstdmt/export.h>
#include <kelstdmt/vumrt.h>

namespace kel {

constexpr int name_service_port = 1239;
constexpr int name_service_greeting = 100;  // the int that begins a request
// The fields that servers are found by. One record at a time has a name.
constexpr const char *server_name_field = "_ServerName", *server_port_field = "_PortNumber";

// Seconds in which a name server has to send the next 4 KB of an answer, or to take as much of a request,
// before its client gives it up: 30, unless the program sets others. INFINITE: for ever. From any thread.
KELSTDMT_API double name_service_patience() noexcept;
KELSTDMT_API void set_name_service_patience(double seconds) noexcept;

enum class name_request : unsigned char {
    ping = 1,
    add = 3,
    remove = 4,
    query = 5,
    shutdown = 6,
    version = 7
};

enum class name_status : unsigned char {
    success = 0,
    no_connection = 2,  // or the exchange broke off
    not_recognized = 3,
    already_exists = 4,
    not_found = 5,
    not_authorized = 6,
    not_sent = 8
};

// The fields keep the order in which they travel; a name stands once.
struct KELSTDMT_API name_record {
    unsigned process = 0;  // the record goes when this process ends; 0: it stays
    std::vector<std::pair<std::string, std::string>> fields;

    const std::string *find(std::string_view name) const noexcept;  // null when there is none
    void set(std::string_view name, std::string_view value);        // replaces or appends
};

// Fields at most, and the bytes of a name and a value at most, counted with one more each.
struct name_record_limits {
    int fields = 256;
    int name = 256;
    int value = 256;
};

KELSTDMT_API void append_int(std::string &to, int value);  // 4 bytes, most significant first
KELSTDMT_API int int_at(const char *bytes) noexcept;       // the way back

// Appends the record's bytes. False, and nothing appended, when it is beyond the limits or has a NUL in a
// name or value.
KELSTDMT_API bool append_record(std::string &to, const name_record &record,
                                const name_record_limits &limits = {});

// Takes a record out of bytes that come in pieces of any size. Memory is taken for bytes that have come, not
// for sizes that were told. Malformed are a count, size or length that is negative or beyond its limit, a
// size that has no room for the length and one more, and a name or value with a NUL; so what was taken can be
// appended again. Of two fields of one name the second value counts.
class KELSTDMT_API name_record_reader {
public:
    explicit name_record_reader(const name_record_limits &limits = {}) noexcept : m_limits(limits) {}

    // Uses bytes up to the end of the record and answers how many.
    std::size_t feed(const char *bytes, std::size_t count);
    // How many more bytes belong to the record for certain: what a reader may wait for without reading into
    // what follows. 0 when it is whole or malformed.
    std::size_t missing() const noexcept;
    bool is_whole() const noexcept { return m_step == step::whole; }
    bool is_malformed() const noexcept { return m_step == step::malformed; }
    // The record as far as it was read, whole or not; the reader begins anew.
    name_record take();

private:
    enum class step {
        process,
        count,
        name_size,
        name_length,
        name,
        value_size,
        value_length,
        value,
        whole,
        malformed
    };
    void take_piece(std::string_view piece);
    void take_size(int size, int limit);
    void take_length(int length);
    void await(step next, std::size_t bytes) noexcept;
    void await_field() noexcept;

    name_record_limits m_limits;
    name_record m_record;
    step m_step = step::process;
    std::string m_piece;       // what has come of the int, name or value that is awaited
    std::size_t m_wanted = 4;  // bytes of it in all
    int m_size = 0;            // told for the name or value
    int m_fields_left = 0;
    std::string m_name;  // of the field whose value is awaited
};

// The port that clients use: that of the environment variable ORVNMSPORT, else 1239. A value that is no
// number is reported on standard error.
KELSTDMT_API int name_service_port_of_environment();

}  // namespace kel

// The plain functions. Whatever they answer belongs to the caller and is freed with the function of its kind;
// null is accepted everywhere. An error is null on success. One connection object is for one thread at a
// time.

struct nmsServ;  // a name server that requests go to
struct nmsRec;
struct nmsErr;

KELSTDMT_API nmsServ *nmsServConnectLocal();
KELSTDMT_API nmsServ *nmsServConnectByName(const char *host);  // null for a null pointer, a marker and ""
KELSTDMT_API void nmsServDelete(nmsServ *server);

KELSTDMT_API nmsErr *nmsServPing(nmsServ *server);
KELSTDMT_API nmsErr *nmsServRegister(nmsServ *server, nmsRec *record);
KELSTDMT_API nmsErr *nmsServRemove(nmsServ *server, nmsRec *record_template);
// An array of *count records, null when there are none. A null pointer for either: it is not wanted.
KELSTDMT_API nmsErr *nmsServQuery(nmsServ *server, nmsRec *record_template, nmsRec ***records, int *count);

// With associated 1 the record belongs to this process, with another number but 0 to the process of that id:
// it goes when the process ends.
KELSTDMT_API nmsRec *nmsRecCreate(int associated = 0);
KELSTDMT_API void nmsRecDelete(nmsRec *record);
KELSTDMT_API void nmsRecArrayDelete(nmsRec **records, int count);
KELSTDMT_API bool nmsRecAdd(nmsRec *record, const char *name,
                            const char *value);  // false for what is no text
KELSTDMT_API bool nmsRecHasField(nmsRec *record, const char *name);
// Null when there is none; lives until the record is changed or deleted.
KELSTDMT_API const char *nmsRecGetFieldValueByName(nmsRec *record, const char *name);
KELSTDMT_API void nmsRecPrint(nmsRec *record);  // on standard error, a field a line

KELSTDMT_API int nmsErrGetCode(nmsErr *error);  // a name_status; 0 for null
KELSTDMT_API void nmsErrPrint(nmsErr *error);   // on standard error
KELSTDMT_API void nmsErrDelete(nmsErr *error);
