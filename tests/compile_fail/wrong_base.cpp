// expect: KEL_CLASS of Machine names a class that is no base
#include <kelstdmt/declare.h>

KEL_DECLARE_STRUCT(Person)
class Person : public xobject {
    KEL_CLASS(Person, xobject)
};
KEL_DECLARE_STRUCT(Machine)
class Machine : public xobject {
#ifdef WITHOUT_MISTAKE
    KEL_CLASS(Machine, xobject)
#else
    KEL_CLASS(Machine, Person)
#endif
};
KEL_DEFINE_STRUCT(Person, "demo::Person", kel::counted)
KEL_DEFINE_STRUCT(Machine, "demo::Machine", kel::counted)
