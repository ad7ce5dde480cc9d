// A server of the remote shell and a client that sends any bytes: what it asks for, what the command is given
// and how it ends must be what stands in the bytes, however they are cut. A few harmless commands are
// permitted. Where the bytes end between two messages, the client goes on in order; else it leaves.
#include <thread>

#include <kelstdmt/rshlib.h>

#include "peer.h"

namespace {

using namespace peer;

struct Story {
    std::string command, directory;
    bool is_request = false;  // a whole one
    // The bytes end between two messages, before an acknowledgement, and hold no channel back.
    bool in_order = false;
    bool stopped = false;  // somewhere, by 8 or 9
    std::string input;
};

Story model(std::string_view bytes) {
    Story story;
    Reader from{bytes};
    for (std::string *text : {&story.command, &story.directory}) {
        const int size = from.integer();
        if (!from.whole || size < 0) return story;
        *text = from.bytes(size).c_str();
    }
    from.integer();
    story.is_request = story.in_order = from.whole;
    bool held[2] = {};
    for (bool open = true; story.in_order && !from.left.empty();) {
        const int tag = from.integer();
        if (tag == In && from.whole) {
            const int size = from.integer();
            if (size < 0) return story.in_order = false, story;
            const std::string taken = from.whole ? from.bytes(size) : "";
            if (open) story.input += taken;
        }
        if (tag == End) open = false;
        if (tag == Kill || tag == Break) story.stopped = true;
        for (const int channel : {Err, Out}) {
            if (tag == channel + Hold) held[channel == Out] = true;
            if (tag == channel + GoOn) held[channel == Out] = false;
        }
        story.in_order = from.whole && tag != Done;
    }
    story.in_order = story.in_order && !held[0] && !held[1];
    return story;
}

// The messages of a server as far as they are there, into the two outputs and the code. True once it has
// acknowledged.
bool read_answer(std::string_view bytes, std::string (&texts)[2], int &code) {
    Reader from{bytes};
    from.integer();
    bool told = false;
    while (!from.left.empty()) {
        const int tag = from.integer();
        const int value = tag == Done ? 0 : from.integer();
        if (!from.whole) return false;
        require(tag == Err || tag == Out || tag == Done || (tag == Code && !told), "an unknown answer");
        if (tag == Code) code = value, told = true;
        if (tag == Done) return require(told, "no code before the acknowledgement"), true;
        if (tag == Err || tag == Out) {
            require(value > 0, "an empty message");
            texts[tag == Out] += from.bytes(value);
        }
    }
    return false;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size) {
    static const int shell = ::setenv("SHELL", "/bin/sh", 1);
    if (size < 1 || size > 2000 || shell != 0) return 0;
    const std::string_view sent(reinterpret_cast<const char *>(bytes) + 1, size - 1);
    const Story story = model(sent);
    Connection connection;
    bool asked = false, launched = false;
    kel::remote_shell_options options;
    options.permit = [&](const kel::remote_command &command) {
        asked = true;
        require(kel::view(command.text) == story.command, "another command");
        require(kel::view(command.working_directory).empty() == story.directory.empty(), "another directory");
        return story.command == "cat" || story.command == "true" ? xstring() : xstring("no");
    };
    options.launched = [&](const kel::remote_command &, int) { launched = true; };
    std::thread serving([&] {
        const bool served = kel::serve_remote_command(connection.ours.get(), options, nullptr);
        require(served == launched, "another answer to whether it was launched");
        connection.ours.reset();
    });
    connection.send(sent, bytes[0]);
    std::string answer, texts[2];
    int code = -1;
    bool acknowledged = false;
    if (story.is_request && story.in_order) {
        connection.send(message(End));
        for (std::string piece; !acknowledged && !(piece = connection.receive()).empty();) {
            answer += piece;
            for (std::string &text : texts)
                text.clear();
            acknowledged = answer.starts_with(message(0)) && read_answer(answer, texts, code);
        }
        connection.send(message(Done));
    }
    connection.Close();
    serving.join();
    require(asked <= story.is_request, "half a request was answered");
    require(acknowledged == (launched && story.in_order), "no end in order");
    if (!acknowledged) return 0;
    const std::string expected = story.command == "cat" ? story.input : "";
    require(story.stopped ? expected.starts_with(texts[1]) : texts[1] == expected, "other output");
    require(code == 0 || (story.stopped && (code == 137 || code == 130)), "another exit code");
    return 0;
}
