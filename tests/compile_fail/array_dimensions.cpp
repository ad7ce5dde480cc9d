// expect: element getter takes one int for each dimension
#include <kelstdmt/declare.h>

KEL_DECLARE_ARRAY(Matrix)
class Matrix : public xobject {
    KEL_CLASS(Matrix, xobject)
public:
    int At(int row, int column) const { return row + column; }
};
#ifdef WITHOUT_MISTAKE
KEL_DEFINE_ARRAY(Matrix, "demo::Matrix", kel::counted, kel::elements<&Matrix::At, 2, 3>())
#else
KEL_DEFINE_ARRAY(Matrix, "demo::Matrix", kel::counted, kel::elements<&Matrix::At, 2>())
#endif
