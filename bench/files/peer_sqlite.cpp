// A table of names and values, with the journal that is fastest for small changes. One set is one
// transaction. By default a power cut may take the last ones away, but damages nothing, as with ours; with
// `full` each is on the disk before the next begins.
#ifdef KELSTDMT_PEER_SQLITE
#include <sqlite3.h>

#include "cases.h"
#include "work.h"

namespace bench {
namespace {

class Statement {
public:
    Statement(sqlite3 *base, const char *text) { sqlite3_prepare_v2(base, text, -1, &m_statement, nullptr); }
    ~Statement() { sqlite3_finalize(m_statement); }
    Statement(const Statement &) = delete;
    Statement &operator=(const Statement &) = delete;

    void bind(int place, const std::string &text) {
        sqlite3_bind_text(m_statement, place, text.data(), static_cast<int>(text.size()), SQLITE_STATIC);
    }
    bool step() { return sqlite3_step(m_statement) == SQLITE_ROW; }
    std::string text() { return reinterpret_cast<const char *>(sqlite3_column_text(m_statement, 0)); }
    void reset() { sqlite3_reset(m_statement); }

private:
    sqlite3_stmt *m_statement = nullptr;
};

struct Base {
    Base(const std::string &place, const char *synchronous) {
        sqlite3_open(place.c_str(), &base);
        sqlite3_exec(base, "pragma journal_mode = wal", nullptr, nullptr, nullptr);
        sqlite3_exec(base, synchronous, nullptr, nullptr, nullptr);
        sqlite3_exec(base,
                     "create table settings (name text primary key collate nocase, value text) without rowid",
                     nullptr, nullptr, nullptr);
    }
    ~Base() { sqlite3_close(base); }
    Base(const Base &) = delete;
    Base &operator=(const Base &) = delete;
    sqlite3 *base = nullptr;
};

template <bool Full>
class Settled : public Store {
public:
    explicit Settled(const std::string &place)
        : m_base(place, Full ? "pragma synchronous = full" : "pragma synchronous = normal") {}
    void set(const std::string &name, const std::string &value) override {
        m_set.bind(1, name);
        m_set.bind(2, value);
        m_set.step();
        m_set.reset();
    }
    std::string get(const std::string &name) override {
        m_get.bind(1, name);
        std::string value = m_get.step() ? m_get.text() : "";
        m_get.reset();
        return value;
    }

private:
    Base m_base;
    Statement m_set{m_base.base, "insert or replace into settings values (?, ?)"};
    Statement m_get{m_base.base, "select value from settings where name = ?"};
};

}  // namespace

void add_sqlite(Suite &suite) {
    add_registry<Settled<false>>(suite, Library::Sqlite, "SQLite, normal");
    add_registry<Settled<true>>(suite, Library::SqliteFull, "SQLite, full");
}

}  // namespace bench
#endif
