// Declarations, right as they stand. Each macro that is tested brings in one mistake, which must not compile,
// for the reason beside it.
#include <kelstdmt/declare.h>
#include <kelstdmt/kel.h>

#include <iostream>

struct Stranger {};
enum Undeclared { one, two };
enum Declared { three, four };
KEL_DECLARE_ENUM(Declared)

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
KEL_DECLARE_ARRAY(Matrix)
class Matrix : public xobject {
    KEL_CLASS(Matrix, xobject)
public:
    int At(int row, int column) const { return row + column; }
};

#ifdef element_without_descriptor  // expect: this type has no descriptor; a field or element is
KEL_SEQUENCE(Values, Undeclared)
#else
KEL_SEQUENCE(Values, Declared)
#endif
KEL_DEFINE_SEQUENCE(Values, "demo::Values", kel::counted)
#ifdef two_fields_of_one_name  // expect: two fields of Person have one name
KEL_DEFINE_STRUCT(Person, "demo::Person", kel::counted, kel::field<&Person::Uid>("Uid"),
                  kel::field<&Person::Gid>("Uid"))
#else
KEL_DEFINE_STRUCT(Person, "demo::Person", kel::counted, kel::field<&Person::Uid>("Uid"),
                  kel::field<&Person::Gid>("Gid"))
#endif
KEL_DEFINE_STRUCT(Machine, "demo::Machine", kel::counted, kel::field<&Machine::Owner>("Owner"))
#ifdef array_dimensions  // expect: element getter takes one int for each dimension
KEL_DEFINE_ARRAY(Matrix, "demo::Matrix", kel::counted, kel::elements<&Matrix::At, 2>())
#else
KEL_DEFINE_ARRAY(Matrix, "demo::Matrix", kel::counted, kel::elements<&Matrix::At, 2, 3>())
#endif

int main() {
#ifdef printed_type  // expect: kelstdmt: this type cannot be printed; see kel::printed
    std::cout << kel::printed(Stranger());
#endif
}
