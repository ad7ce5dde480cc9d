// expect: body of Account lacks KEL_CLASS
#include <kelstdmt/declare.h>

KEL_DECLARE_STRUCT(Account)
class Account : public xobject {
#ifdef WITHOUT_MISTAKE
    KEL_CLASS(Account, xobject)
#endif
public:
    int Uid = 0;
};
KEL_DEFINE_STRUCT(Account, "demo::Account", kel::counted, kel::field<&Account::Uid>("Uid"))
