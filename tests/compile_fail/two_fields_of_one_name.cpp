// expect: two fields of Account have one name
#include <kelstdmt/declare.h>

KEL_DECLARE_STRUCT(Account)
class Account : public xobject {
    KEL_CLASS(Account, xobject)
public:
    int Uid = 0;
    int Gid = 0;
};
#ifdef WITHOUT_MISTAKE
KEL_DEFINE_STRUCT(Account, "demo::Account", kel::counted, kel::field<&Account::Uid>("Uid"),
                  kel::field<&Account::Gid>("Gid"))
#else
KEL_DEFINE_STRUCT(Account, "demo::Account", kel::counted, kel::field<&Account::Uid>("Uid"),
                  kel::field<&Account::Gid>("Uid"))
#endif
