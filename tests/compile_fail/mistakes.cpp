// Declarations, right as they stand. Each macro that is tested brings in one mistake, which must not compile,
// for the reason beside it.
#include <kelstdmt/declare.h>
#include <kelstdmt/kel.h>

#include <iostream>

struct Stranger {};

KEL_DECLARE_STRUCT(Person)
class Person : public xobject {
#ifndef missing_class_macro  // expect: body of Person lacks KEL_CLASS
    KEL_CLASS(Person, xobject)
#endif
public:
    int Uid = 0;
    int Gid = 0;
};
KEL_DECLARE_STRUCT(Machine)
class Machine : public xobject {
#ifdef wrong_base  // expect: KEL_CLASS of Machine names a class that is no base
    KEL_CLASS(Machine, Person)
#else
    KEL_CLASS(Machine, xobject)
#endif
public:
#ifdef field_without_descriptor  // expect: the type of this field has no descriptor; a field or element is
    Stranger Owner;
#else
    int Owner = 0;
#endif
};

#ifdef two_fields_of_one_name  // expect: two fields of Person have one name
KEL_DEFINE_STRUCT(Person, "demo::Person", kel::counted, kel::field<&Person::Uid>("Uid"),
                  kel::field<&Person::Gid>("Uid"))
#else
KEL_DEFINE_STRUCT(Person, "demo::Person", kel::counted, kel::field<&Person::Uid>("Uid"),
                  kel::field<&Person::Gid>("Gid"))
#endif
KEL_DEFINE_STRUCT(Machine, "demo::Machine", kel::counted, kel::field<&Machine::Owner>("Owner"))

int main() {
#ifdef printed_type  // expect: kelstdmt: this type cannot be printed; see kel::printed
    std::cout << kel::printed(Stranger());
#endif
}
