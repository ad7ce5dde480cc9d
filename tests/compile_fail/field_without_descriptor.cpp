// expect: the type of this field has no descriptor; a field or element is
#include <kelstdmt/declare.h>

struct Stranger {};

KEL_DECLARE_STRUCT(Account)
class Account : public xobject {
    KEL_CLASS(Account, xobject)
public:
#ifdef WITHOUT_MISTAKE
    int Owner = 0;
#else
    Stranger Owner;
#endif
};
KEL_DEFINE_STRUCT(Account, "demo::Account", kel::counted, kel::field<&Account::Owner>("Owner"))
