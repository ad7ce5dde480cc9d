// The stream core over a buffer and an encoder of the test's own: guards and their order, codes, the state
// word, messages, trials, copying.
#include "iolibsrc/own_stream.h"

#include <fcntl.h>
#include <unistd.h>

#include <random>
#include <thread>
#include <vector>

namespace {

// Answers the code that it is told to.
class Coder : public ioBinarySerializer {
public:
    ioTryCode code = ioSuccess;
    bool throws = false;

protected:
    ioTryCode RdInt(int &value, std::streambuf *from) override {
        if (throws) throw std::bad_alloc();
        return code == ioSuccess ? ioBinarySerializer::RdInt(value, from) : code;
    }
    ioTryCode WrInt(int value, std::streambuf *to) override {
        return code == ioSuccess ? ioBinarySerializer::WrInt(value, to) : code;
    }
};

const std::string not_open = "stream not open",
                  improper = "function \"\" can not be called in the current context";

// Guards ---------------------------------------------------------------------------------------

// The operations by what is asked before they run. All of them read or write one byte at least, or none; a
// trial or an event, which the buffer does not offer, does not make the stream active.
enum Kind { Typed, Raw, Offer, Free };
struct Operation {
    const char *name;
    bool input;
    Kind kind;
    void (*run)(Stream &);
};

char bytes[4] = {1, 2, 3, 4};
const Operation operations[] = {
    {"ReadByte", true, Typed, [](Stream &s) { s.ReadByte(); }},
    {"ReadInt", true, Typed, [](Stream &s) { s.ReadInt(); }},
    {"ReadBool", true, Typed, [](Stream &s) { s.ReadBool(); }},
    {"ReadReal", true, Typed, [](Stream &s) { s.ReadReal(); }},
    {"ReadString", true, Typed, [](Stream &s) { s.ReadString(); }},
    {"ReadBytes", true, Raw, [](Stream &s) { s.ReadBytes(bytes, 4); }},
    {"ReadBytes 0", true, Raw, [](Stream &s) { EXPECT_EQ(s.ReadBytes(nullptr, 0), 0U); }},
    {"PeekNBytes", true, Raw, [](Stream &s) { s.PeekNBytes(); }},
    {"TryReadByte", true, Offer, [](Stream &s) { s.TryReadByte(); }},
    {"InputEvent", true, Offer, [](Stream &s) { EXPECT_EQ(s.InputEvent(), nullptr); }},
    {"WriteByte", false, Typed, [](Stream &s) { s.WriteByte(1); }},
    {"WriteInt", false, Typed, [](Stream &s) { s.WriteInt(1); }},
    {"WriteBool", false, Typed, [](Stream &s) { s.WriteBool(1); }},
    {"WriteReal", false, Typed, [](Stream &s) { s.WriteReal(1); }},
    {"WriteString", false, Typed, [](Stream &s) { s.WriteString("1"); }},
    {"WriteBytes", false, Raw, [](Stream &s) { s.WriteBytes(bytes, 4); }},
    {"TryWriteByte", false, Offer, [](Stream &s) { s.TryWriteByte(1); }},
    {"OutputEvent", false, Offer, [](Stream &s) { EXPECT_EQ(s.OutputEvent(), nullptr); }},
    {"SizeOf text", true, Free, [](Stream &s) { EXPECT_EQ(s.SizeOf("abc"), 7); }},
    {"SizeOf numbers", true, Free, [](Stream &s) { EXPECT_EQ(s.SizeOf(1.5) + s.SizeOfByte(7), 9); }},
    {"setITimeout", true, Free, [](Stream &s) { s.setITimeout(INFINITE); }},
    {"setSerializer", true, Free, [](Stream &s) { s.setSerializer(ioSerializer::getBinary()); }},
};

TEST(Stream, GuardsInTheirOrder) {
    for (const auto &[name, input, kind, run] : operations)
        for (int matter = 0; matter < 16; ++matter) {
            SCOPED_TRACE(std::string(name) + ", matter " + std::to_string(matter));
            const bool is_closed = matter & 1, is_bad = matter & 2, wrong_way = matter & 4,
                       timed = matter & 8;
            Stream stream(input || !wrong_way, !input || !wrong_way);
            stream.data = std::string(64, '\0');
            if (timed) input ? stream.setITimeout(std::nextafter(INFINITE, 0.0)) : stream.setOTimeout(0.0);
            if (is_bad) stream.setIsBad(true);
            if (is_closed) stream.Close();
            std::string expected;
            if (is_closed)
                expected = not_open;
            else if (kind != Free && is_bad)
                expected = "I/O error";
            else if (kind != Free && wrong_way)
                expected = input ? "input denied" : "output denied";
            else if (kind == Typed && timed)
                expected = input ? "function \"ITimeout != INFINITE\" not supported"
                                 : "function \"OTimeout != INFINITE\" not supported";
            EXPECT_EQ(failure([&, call = run] { call(stream); }, &stream), expected);
            if (is_closed) continue;
            stream.setIsBad(false);
            const bool active = kind < Offer && expected.empty();
            EXPECT_EQ(failure([&] { stream.setSerializer(ioSerializer::getXDR()); }), active ? improper : "");
            EXPECT_TRUE(active || stream.buffer->plain.at + stream.written.size() == 0);
        }
}

TEST(Stream, RefusesWhatItsBufferCannotTell) {
    const std::pair<const char *, std::function<void(Stream &)>> refused[] = {
        {"getBufferSize", [](Stream &s) { s.getBufferSize(); }},
        {"setBufferSize", [](Stream &s) { s.setBufferSize(1); }},
        {"Ignore", [](Stream &s) { s.Ignore(); }},
        {"getWouldDataLost", [](Stream &s) { s.getWouldDataLost(); }},
    };
    for (const auto &[function, call] : refused) {
        Stream stream(true, true);
        EXPECT_EQ(failure([&, run = call] { run(stream); }, &stream),
                  "function \"" + std::string(function) + "\" not supported");
    }
}

TEST(Stream, NeedsItsPartsAndFollowsItsEncoding) {
    Stream stream;
    Buffer unused;
    const std::string none = "not a stream error: kellib::XNotInitialized";
    EXPECT_EQ(failure([&] { Stream(true, true, nullptr, &unused); }), none);
    EXPECT_EQ(failure([&] { stream.setSerializer(nullptr); }), none);
    stream.setSerializer(ioSerializer::getAscii());
    stream.setSerializer(ioSerializer::getXDR());
    EXPECT_EQ(stream.modes, "tb");
}

// State ----------------------------------------------------------------------------------------

TEST(Stream, CodesBecomeStatesAndMessages) {
    Coder coder;
    const char *messages[] = {
        "", "", "EOF reached", "I/O error", "conversion error", "function \"\" not supported"};
    for (int code = ioSuccess; code <= ioNotSupported; ++code) {
        Stream stream(true, true, &coder), other(true, true, &coder);
        stream.data = "1234";
        coder.code = static_cast<ioTryCode>(code);
        EXPECT_EQ(failure([&] { stream.ReadInt(); }), messages[code]);
        EXPECT_EQ(failure([&] { other.WriteInt(1); }), messages[code]);
        const bool good = code < ioEndOfFile || code == ioNotSupported;
        EXPECT_TRUE(stream.getIsGood() == good && other.getIsGood() == good) << code;
    }
}

TEST(Stream, TheFirstBitInTheOrderNamesTheState) {
    const std::pair<int, const char *> order[] = {
        {ioStream::Eof, "EOF reached"},       {ioStream::Bad, "I/O error"},
        {ioStream::Fail, "conversion error"}, {ioStream::Timeout, "timeout expired"},
        {ioStream::DataLost, "data lost"},    {0, "unknown error"}};
    int behind = 31;
    for (const auto &[bit, name] : order) {
        Stream stream;
        EXPECT_EQ(failure([&] { stream.ThrowState(behind); }), name);
        EXPECT_EQ(failure([&] { stream.ReadInt(); }), behind ? name : "EOF reached");
        EXPECT_EQ(stream.getIsTimeout() + stream.getIsDataLost(), !!(behind & 8) + !!(behind & 16));
        bit == ioStream::Eof ? stream.setIsFail(false) : stream.setIsBad(false);
        EXPECT_TRUE(stream.getIsGood()) << "false clears all bits";
        behind &= ~bit;
    }
}

kel::caught error_of(Stream &stream) {
    try {
        stream.ReadInt();
    } catch (xthrowable *thrown) {
        return kel::caught(thrown);
    }
    ADD_FAILURE() << "nothing was thrown";
    return kel::caught(nullptr);
}

// An error reports its stream as it is now, and may outlive it.
TEST(Stream, ErrorsAndStreamsMayDieInAnyOrder) {
    std::mt19937 random(3);
    for (int round = 0; round < 20; ++round) {
        auto stream = std::make_unique<Stream>();
        std::vector<kel::caught> errors;
        auto all_say = [&](ioStream *of, const std::string &message) {
            for (auto &error : errors) {
                EXPECT_EQ(error.as<ioXStream>()->getStream(), of);
                EXPECT_EQ(text_of(error.as<ioXStream>()->getMsg()), "Stream Error (iolib):" + message);
            }
        };
        for (int i = 0; i < 20; ++i) {
            errors.push_back(error_of(*stream));
            all_say(stream.get(), "EOF reached");
            stream->setIsBad(false);
            all_say(stream.get(), "unknown error");
            if (random() % 3 == 0) errors.erase(errors.begin() + static_cast<int>(random() % errors.size()));
        }
        stream->Close();
        all_say(stream.get(), not_open);
        stream.reset();
        all_say(nullptr, "EOF reached");  // as it was when it threw
        std::shuffle(errors.begin(), errors.end(), random);
    }
}

// Errors are deleted elsewhere while their stream goes on.
TEST(Stream, AnErrorMayEndInAnotherThread) {
    Stream stream;
    std::vector<kel::caught> errors;
    for (int i = 0; i < 400; ++i) {
        errors.push_back(error_of(stream));
        stream.setIsBad(false);
    }
    std::thread other([&] {
        while (errors.size() > 20)
            errors.erase(errors.begin() + static_cast<int>(errors.size() / 2));
    });
    for (int i = 0; i < 400; ++i, stream.setIsBad(false))
        error_of(stream);
    other.join();
}

// Trials ---------------------------------------------------------------------------------------

TEST(Stream, TrialsAnswerCodesAndLeaveTheStateAlone) {
    Coder coder;
    Stream stream(true, true, &coder);
    Buffer &buffer = *stream.buffer;
    EXPECT_EQ(stream.TryReadInt(), ioNotSupported);
    EXPECT_EQ(stream.TryWriteInt(1), ioNotSupported);
    buffer.tries = true;
    for (bool at_end : {false, true}) {
        buffer.at_end = at_end;
        for (int code = ioWouldBlock; code <= ioNotSupported; ++code) {
            coder.code = static_cast<ioTryCode>(code);
            EXPECT_EQ(stream.TryReadInt(), at_end && code == ioWouldBlock ? ioEndOfFile : coder.code);
            EXPECT_EQ(stream.TryWriteInt(1), coder.code);
        }
    }
    coder.code = ioSuccess;
    EXPECT_EQ(stream.TryWriteByte(1) + stream.TryWriteInt(1) + stream.TryWriteBool(1) +
                  stream.TryWriteReal(1.0) + stream.TryWriteString(""),
              ioSuccess);
    EXPECT_EQ(buffer.taken.written, std::string("\1\1\0\0\0\1\0\0\0\0\0\0\xF0\x3F\0\0\0\0", 18));
    coder.throws = true;
    EXPECT_THROW(stream.TryReadInt(), std::bad_alloc);
    EXPECT_TRUE(stream.getIsGood());
    EXPECT_EQ(buffer.ended, buffer.begun) << "every trial that began has ended";
    buffer.has_event = true;
    const std::unique_ptr<ioEvent> input(stream.InputEvent()), output(stream.OutputEvent());
    EXPECT_TRUE(input->getStream() == &stream && input->getIsSignaled() && output->Wait(0.0));
    EXPECT_TRUE(input->getType() == ioInputPending && output->getType() == ioOutputPending);
}

// Copying --------------------------------------------------------------------------------------

TEST(CopyStream, CopiesAllAndLeavesTheSourceGood) {
    std::mt19937 random(11);
    for (std::size_t size : {0U, 1U, 4095U, 4096U, 4097U, 65536U, 1000003U}) {
        std::string data(size, '\0');
        for (char &byte : data)
            byte = static_cast<char>(random());
        Stream target, second, source;
        source.data = data;
        CopyStream(&target, &source);
        std::unique_ptr<ioStringStream> memory(ioStringStream::Create());
        memory->setSerializer(ioSerializer::getBinary());
        memory->WriteBytes(data.data(), static_cast<unsigned>(size));
        memory->WriteStream(&second);
        EXPECT_TRUE(target.written == data && second.written == data) << size;
        EXPECT_TRUE(source.getIsGood() && target.getIsGood() && memory->getIsGood());
        for (Stream *active : {&target, &source})
            EXPECT_EQ(failure([&] { active->setSerializer(ioSerializer::getXDR()); }), improper);
    }
}

TEST(CopyStream, Refuses) {
    ioBinarySerializer twin;
    Stream source, other(true, true, &twin), reader(false, true), writer(true, false), failed;
    source.data = "abc";
    failed.setIsFail(true);
    const struct {
        Stream *target, *source, *blamed;
        const char *message;
    } cases[] = {
        {&other, &source, &source, "incompatible format"},  // encoders are told apart as objects
        {&source, &source, &source, "function \"CopyStream\" can not be called in the current context"},
        {&reader, &writer, &writer, "input denied"},  // the source first
        {&reader, &source, &reader, "output denied"},
        {&failed, &source, &failed, "conversion error"},
        {nullptr, &source, nullptr, "not a stream error: kellib::XNotInitialized"},
    };
    for (const auto &one : cases) {
        EXPECT_EQ(failure([&] { CopyStream(one.target, one.source); }, one.blamed), one.message);
        EXPECT_EQ(source.buffer->plain.at, 0U) << "nothing was read";
    }
    source.setSerializer(ioSerializer::getAscii());
}

TEST(CopyStream, AShortWriteIsTheTargetsFailure) {
    Stream source, target;
    const std::unique_ptr<ioStringStream> memory(ioStringStream::Create("0123456789"));
    memory->setSerializer(ioSerializer::getBinary());
    target.buffer->plain.limit = 7;
    EXPECT_EQ(failure([&] { CopyStream(&target, memory.get()); }, &target), "I/O error");
    EXPECT_TRUE(target.getIsBad() && memory->getIsGood());
    EXPECT_EQ(target.written + drain(*memory), "0123456789") << "what was not taken is still there";
    source.data = std::string(10000, 'x');
    target.setIsBad(false);
    target.buffer->plain.limit = 5000;
    EXPECT_EQ(failure([&] { CopyStream(&target, &source); }, &target), "I/O error");
    EXPECT_EQ(target.written.size(), 5000U);
}

// The end that is typed at a terminal passes: who asks once too often waits for what is typed behind it.
TEST(CopyStream, EndsAtTheFirstEndOfATerminal) {
    int keyboard = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_TRUE(keyboard >= 0 && ::grantpt(keyboard) == 0 && ::unlockpt(keyboard) == 0);
    std::unique_ptr<ioStream> terminal(ioFileStream::Open(::ptsname(keyboard), ioReadOnly));
    std::string keys = "\4a\n\4b\n";
    ASSERT_EQ(::write(keyboard, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
    std::unique_ptr<ioStringStream> copy(ioStringStream::Create());
    CopyStream(copy.get(), terminal.get());
    EXPECT_EQ(text_of(copy->getStr()), "");
    CopyStream(copy.get(), terminal.get());
    EXPECT_EQ(text_of(copy->getStr()), "a\n");
    EXPECT_EQ(text_of(terminal->ReadString()), "b");
    ::close(keyboard);
}

}  // namespace
