// A program with a name server, which knows only what is installed.
#include <kelstdmt/nameserver.h>

int main() {
    std::string error;
    const auto names = kel::name_server::create({}, error);
    return names && names->start() ? 0 : 1;
}
