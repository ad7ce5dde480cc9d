// expect: this type has no descriptor; a field or element is
#include <kelstdmt/declare.h>

enum Undeclared { one, two };
enum Declared { three, four };
KEL_DECLARE_ENUM(Declared)

#ifdef WITHOUT_MISTAKE
KEL_SEQUENCE(Values, Declared)
#else
KEL_SEQUENCE(Values, Undeclared)
#endif
KEL_DEFINE_SEQUENCE(Values, "demo::Values", kel::counted)
