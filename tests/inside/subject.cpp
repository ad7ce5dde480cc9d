// What tests/inside/printers_test.py looks at with the debugger: a value of each kind, broken ones, and
// cycles.
#include <cstring>
#include <new>

#include <kelstdmt/declare.h>
#include <kelstdmt/kel.h>
#include <kelstdmt/netlib_stream.h>

enum Shell { shellNone, shellBash, shellOther };
KEL_DECLARE_ENUM(Shell)
KEL_DEFINE_ENUM(Shell, "demo::Shell", "none", "bash", "other")

KEL_DECLARE_STRUCT(Account)
class Account : public xobject {
    KEL_CLASS(Account, xobject)
public:
    explicit Account(const char *name) : Name(name) {}
    int getUid() const { return m_uid; }
    int Twice() { return 2 * m_uid; }

    xstring Name;
    std::optional<int> Age;
    xany Login{shellBash, kel_descriptor(shellBash)};
    xrchandle<Account> Friend;

private:
    int m_uid = 1;
};
KEL_DEFINE_STRUCT(Account, "demo::Account", kel::counted, kel::field<&Account::Name>("Name"),
                  kel::field<&Account::getUid>("Uid"), kel::optional_field<&Account::Age>("Age"),
                  kel::field<&Account::Login>("Login"), kel::field<&Account::Twice>("Twice"),
                  kel::field<&Account::Friend>("Friend"))

KEL_DECLARE_STRUCT(Admin)
class Admin : public Account {
    KEL_CLASS(Admin, Account)
public:
    using Account::Account;
    double Rank = 0.5;
};
KEL_DEFINE_STRUCT(Admin, "demo::Admin", kel::counted, kel::field<&Admin::Rank>("Rank"))

KEL_SEQUENCE(Accounts, xrchandle<Account>)
KEL_DEFINE_SEQUENCE(Accounts, "demo::Accounts", kel::counted)
KEL_DICTIONARY(Numbers, double)
KEL_DEFINE_DICTIONARY(Numbers, "demo::Numbers", kel::uncounted)
KEL_SEQUENCE(Values, xany)
KEL_DEFINE_SEQUENCE(Values, "demo::Values", kel::uncounted)
KEL_SEQUENCE(Ring, xrchandle<Ring>)
KEL_DEFINE_SEQUENCE(Ring, "demo::Ring", kel::counted)

namespace {

template <class T>
struct raw {
    alignas(T) unsigned char bytes[sizeof(T)];
    T &as = *reinterpret_cast<T *>(bytes);
    raw() { std::memset(bytes, 0xA5, sizeof bytes); }
};

[[gnu::noinline]] void stop_here() {
    asm("");
}

}  // namespace

int main() {
    xstring null, text("gr\303\274\303\237 \"x\"\n");
    xstring long_text(std::string(1000, 'x').c_str());
    xany uninit, nil(nullptr), whole(42), word("word"), shell(1, xrtti_get_p_Shell());
    xrchandle<Account> anna(new (pDefMemMgr) Account("Anna")), berta(new (pDefMemMgr) Admin("Berta"));
    anna->Age = 30;
    anna->Friend = berta;
    berta->Friend = anna;
    xany object(anna.get());
    [[maybe_unused]] xobject *base = berta;
    static_cast<void>(anna->gettypename());

    xauto<Accounts> accounts;
    accounts.append(anna);
    accounts.append(nullptr);
    accounts.append(berta);
    xauto<Numbers> numbers;
    numbers.set("one", 1);
    numbers.set("two", 2);
    numbers.remove("two");
    xauto<Values> values;
    for (const xany &value : {uninit, nil, whole, word, object})
        values.append(value);
    xrchandle<xthrowable> thrown;
    try {
        kelXNegativeIndex::Throw(-1);
    } catch (xthrowable *caught) {
        thrown = caught;
    }

    // Each leads to each.
    xrchandle<Ring> ring[30];
    for (xrchandle<Ring> &from : ring)
        from = Ring::create();
    for (const xrchandle<Ring> &from : ring)
        for (const xrchandle<Ring> &to : ring)
            from->append(to);

    // What nobody may rely on.
    raw<xany> wild_any;
    raw<xrchandle<Account>> wild_handle;
    raw<Account> wild_account;
    raw<Accounts> wild_accounts;
    auto *freed = new (pDefMemMgr) Account("Freed");
    delete freed;
    stop_here();
}
