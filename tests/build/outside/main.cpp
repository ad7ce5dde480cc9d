// A program that knows only the installed library: it declares a type, throws, catches and prints.
#include <iostream>
#include <sstream>

#include <kelstdmt/kelstdmt.h>

KEL_DECLARE_STRUCT(XTooHot)
class XTooHot : public kelXException {
    KEL_EXCEPTION(XTooHot, kelXException, "Too hot.", (int, Degrees))
};
KEL_DEFINE_EXCEPTION(XTooHot, "outside::XTooHot", kel::counted)

int main() {
    std::ostringstream seen;
    try {
        XTooHot::Throw(451);
    } catch (xthrowable *thrown) {
        kel::caught error(thrown);
        if (!error.is<XTooHot>() || error.as<XTooHot>()->getDegrees() != 451) return 1;
        seen << error;
    }
    if (seen.str().find("451") != std::string::npos) return 0;
    std::cerr << "expected the field's value in: " << seen.str() << '\n';
    return 1;
}
