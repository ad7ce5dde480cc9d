// A server of the remote shell and a client that sends any bytes and then hangs up: what it asks for must be
// what stands in the bytes, however they are cut, nobody is held up, and what it is told are messages. A few
// harmless commands are permitted.
#include <thread>

#include <kelstdmt/rshlib.h>

#include "peer.h"

namespace {

using namespace peer;

struct Request {
    std::string command, directory;
    bool is_whole = false;
};

Request model(std::string_view bytes) {
    Request request;
    Reader from{bytes};
    for (std::string *text : {&request.command, &request.directory}) {
        const int size = from.integer();
        if (!from.whole || size < 0) return request;
        *text = from.bytes(size).c_str();
    }
    from.integer();
    request.is_whole = from.whole;
    return request;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size) {
    static const int shell = ::setenv("SHELL", "/bin/sh", 1);
    if (size < 1 || size > 2000 || shell != 0) return 0;
    const std::string_view sent(reinterpret_cast<const char *>(bytes) + 1, size - 1);
    const Request request = model(sent);
    Connection connection;
    bool asked = false, launched = false;
    kel::remote_shell_options options;
    options.permit = [&](const kel::remote_command &command) {
        asked = true;
        require(kel::view(command.text) == request.command, "another command");
        require(kel::view(command.working_directory).empty() == request.directory.empty(),
                "another directory");
        return request.command == "cat" || request.command == "true" ? xstring() : xstring("no");
    };
    options.launched = [&](const kel::remote_command &, int) { launched = true; };
    std::thread serving([&] {
        const bool served = kel::serve_remote_command(connection.ours.get(), options, nullptr);
        require(served == launched, "another answer to whether it was launched");
        connection.ours.reset();
    });
    connection.send(sent, bytes[0]);
    connection.hang_up();
    const std::string answer = connection.receive_all();
    serving.join();
    require(asked <= request.is_whole, "half a request was answered");
    Reader from{answer};
    if (!launched || from.integer() != 0) return 0;
    while (from.whole && !from.left.empty()) {
        const int tag = from.integer();
        require(tag == Err || tag == Out || tag == Code || tag == Done, "an unknown message");
        const int value = tag == Done ? 0 : from.integer();
        if (tag == Err || tag == Out)
            require(!from.whole || from.bytes(value) != "", "a message without bytes");
    }
    return 0;
}
