// What tests/inside/printers_test.py looks at with the debugger: a value of each kind, broken ones, and
// cycles.
#include <cstdio>
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
    Account(const char *name, int uid) : Name(name), m_uid(uid) {}
    int getUid() const { return m_uid; }
    int Twice() { return 2 * m_uid; }

    xstring Name;
    std::optional<int> Age;
    xany Login{shellBash, kel_descriptor(shellBash)};
    xrchandle<Account> Friend;

private:
    int m_uid;
};
KEL_DEFINE_STRUCT(Account, "demo::Account", kel::counted, kel::field<&Account::Name>("Name"),
                  kel::field<&Account::getUid>("Uid"), kel::optional_field<&Account::Age>("Age"),
                  kel::field<&Account::Login>("Login"), kel::field<&Account::Twice>("Twice"),
                  kel::field<&Account::Friend>("Friend"))

KEL_DECLARE_STRUCT(Admin)
class Admin : public Account {
    KEL_CLASS(Admin, Account)
public:
    Admin(const char *name, int uid, double rank) : Account(name, uid), Rank(rank) {}
    double Rank;
};
KEL_DEFINE_STRUCT(Admin, "demo::Admin", kel::counted, kel::field<&Admin::Rank>("Rank"))

KEL_SEQUENCE(Accounts, xrchandle<Account>)
KEL_DEFINE_SEQUENCE(Accounts, "demo::Accounts", kel::counted)
KEL_DICTIONARY(Numbers, double)
KEL_DEFINE_DICTIONARY(Numbers, "demo::Numbers", kel::uncounted)
KEL_DICTIONARY(ByName, Account *)
KEL_DEFINE_DICTIONARY(ByName, "demo::ByName", kel::uncounted)
KEL_SEQUENCE(Values, xany)
KEL_DEFINE_SEQUENCE(Values, "demo::Values", kel::uncounted)
KEL_SEQUENCE(Ring, xrchandle<Ring>)
KEL_DEFINE_SEQUENCE(Ring, "demo::Ring", kel::counted)

namespace {

template <class T>
struct raw {
    alignas(T) unsigned char bytes[sizeof(T)];
    T &as = *reinterpret_cast<T *>(bytes);
    explicit raw(int fill) { std::memset(bytes, fill, sizeof bytes); }
};

[[gnu::noinline]] void stop_here() {
    std::fflush(stdout);
}

}  // namespace

int main() {
    xstring null, empty(""), text("gr\303\274\303\237 \"x\"\n"), shared(text);
    std::string thousand(1000, 'x');
    xstring long_text(thousand.c_str());
    xany uninit, nil(nullptr), whole(42), yes(true), real(2.5), word("word"), shell(1, xrtti_get_p_Shell());
    xany strange(77, xrtti_get_p_Shell());

    xrchandle<Account> anna(new (pDefMemMgr) Account("Anna", 1)),
        berta(new (pDefMemMgr) Admin("Berta", 2, 0.5));
    xrchandle<Account> nobody;
    xrcunihandle<Account> either(berta);
    anna->Age = 30;
    anna->Friend = berta;
    berta->Friend = anna;
    xany object(anna.get());
    [[maybe_unused]] xobject *base = berta;
    xauto<Account> local("Local", 3);
    static_cast<void>(anna->gettypename());

    xauto<Accounts> accounts;
    accounts.append(anna);
    accounts.append(nullptr);
    accounts.append(berta);
    xauto<Numbers> numbers, none;
    numbers.set("one", 1);
    numbers.set("two", 2);
    numbers.remove("two");
    xauto<ByName> by_name;
    by_name.set("Anna", anna);
    by_name.set("gone", reinterpret_cast<Account *>(kel::uninit_pointer()));
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
    raw<xstring> zero_text(0), wild_text(0xA5);
    raw<xany> wild_any(0xA5);
    raw<xrchandle<Account>> zero_handle(0), wild_handle(0xA5);
    raw<Account> zero_account(0), wild_account(0xA5);
    raw<Accounts> wild_accounts(0xA5);
    raw<Numbers> wild_numbers(0xA5);
    auto *freed = new (pDefMemMgr) Account("Freed", 4);
    delete freed;
    stop_here();
}
