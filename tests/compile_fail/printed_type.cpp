// expect: kelstdmt: this type cannot be printed; see kel::printed
#include <kelstdmt/kel.h>

#include <iostream>

int main() {
    struct Plain {
    } plain;
    static_cast<void>(plain);
#ifndef WITHOUT_MISTAKE
    std::cout << kel::printed(plain);
#endif
}
