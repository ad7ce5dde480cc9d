// A name server inside a program: `name_server_driver [JOURNAL]` prints its port, and stops it when standard
// input ends.
#include <cstdio>
#include <iostream>
#include <string>

#include <kelstdmt/nameserver.h>

int main(int count, char **arguments) {
    kel::name_server_options options;
    if (count > 1) options.journal = arguments[1];
    options.version = "embedded";
    std::string error;
    const auto server = kel::name_server::create(options, error);
    if (!server || !server->start()) return std::cerr << error << '\n', 1;
    std::cout << "port " << server->port() << "\nready" << std::endl;
    while (std::getchar() != EOF) {
    }
    server->stop();
}
