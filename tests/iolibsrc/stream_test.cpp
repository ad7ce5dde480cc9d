// The stream core over a buffer and an encoder of the test's own: guards and their order, codes, the state
// word, messages, trials, copying.
#include "iolibsrc/own_stream.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstring>
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
std::string unsupported(const std::string &name) {
    return "function \"" + name + "\" not supported";
}

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
    {"SizeOfByte", true, Free, [](Stream &s) { EXPECT_EQ(s.SizeOfByte(1), 1); }},
    {"SizeOf text", true, Free, [](Stream &s) { EXPECT_EQ(s.SizeOf("abc"), 7); }},
    {"setITimeout", true, Free, [](Stream &s) { s.setITimeout(INFINITE); }},
    {"setIsBad", true, Free, [](Stream &s) { s.setIsBad(true); }},
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
                expected = unsupported(input ? "ITimeout != INFINITE" : "OTimeout != INFINITE");
            EXPECT_EQ(failure([&] { run(stream); }, &stream), expected);
            if (is_closed) continue;
            stream.setIsBad(false);
            const bool active = kind < Offer && expected.empty();
            EXPECT_EQ(failure([&] { stream.setSerializer(ioSerializer::getXDR()); }), active ? improper : "");
            EXPECT_TRUE(active || stream.buffer->plain.at + stream.written.size() == 0);
        }
}

TEST(Stream, WhatANewOneDoesNotOffer) {
    Stream stream, blind(true, false), closed(true, false);
    Buffer unused;
    closed.Close();
    EXPECT_TRUE(kel::is_nil(stream.getITimeout()) && kel::is_nil(stream.getOTimeout()));
    EXPECT_TRUE(stream.GetInheritHandle() == -1 && !closed.Flush());
    const std::string none = "not a stream error: kellib::XNotInitialized";
    const std::pair<std::function<void()>, std::string> refused[] = {
        {[&] { stream.getBufferSize(); }, unsupported("getBufferSize")},
        {[&] { blind.setBufferSize(1); }, unsupported("setBufferSize")},
        {[&] { stream.Ignore(); }, unsupported("Ignore")},
        {[&] { blind.Ignore(); }, "input denied"},
        {[&] { stream.getWouldDataLost(); }, unsupported("getWouldDataLost")},
        {[&] { stream.Flush(false); }, unsupported("non-blocking Flush")},
        {[&] { stream.getIsBuffered(); }, unsupported("getIsBuffered")},
        {[&] { closed.getIsBuffered(); }, not_open},
        {[&] { Stream(true, true, nullptr, &unused); }, none},
        {[&] { stream.setSerializer(nullptr); }, none},
    };
    for (const auto &[action, message] : refused)
        EXPECT_EQ(failure(action), message) << "expected " << message;
    stream.modes.clear();
    stream.setSerializer(ioSerializer::getAscii());
    stream.setSerializer(ioSerializer::getXDR());
    EXPECT_EQ(stream.modes, "tb");
}

// Where a pointer to a virtual member of the class says that it stands.
template <class Member>
std::ptrdiff_t slot(Member member) {
    std::ptrdiff_t place;
    std::memcpy(&place, &member, sizeof place);
    return place / static_cast<std::ptrdiff_t>(sizeof(void *));
}

TEST(Stream, VirtualOperationsInTheirOrder) {
    struct Slots : Stream {
        std::ptrdiff_t places[4] = {slot(&Slots::OnClose), slot(&Slots::GetInheritHandle),
                                    slot(&Slots::SetTextMode), slot(&Slots::SetBinaryMode)};
    };
    for (std::ptrdiff_t i = 0; i < 4; ++i)
        EXPECT_EQ(Slots().places[i], Slots().places[0] + i);
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
        for (Stream *one : {&stream, &other})
            EXPECT_TRUE(one->getIsEof() == (code == ioEndOfFile) &&
                        one->getIsFail() == (code == ioFormatError) &&
                        one->getIsBad() == (code == ioIOError) &&
                        one->getIsGood() == (code < ioEndOfFile || code == ioNotSupported))
                << code;
    }
}

TEST(Stream, TheFirstBitInTheOrderNamesTheState) {
    for (int bits = 0; bits < 32; ++bits) {
        const std::string name = bits & 1    ? "EOF reached"
                                 : bits & 4  ? "I/O error"
                                 : bits & 2  ? "conversion error"
                                 : bits & 8  ? "timeout expired"
                                 : bits & 16 ? "data lost"
                                             : "unknown error";
        Stream stream;
        EXPECT_EQ(failure([&] { stream.ThrowState(bits); }), name);
        EXPECT_EQ(failure([&] { stream.ReadInt(); }), bits ? name : "EOF reached");
        EXPECT_TRUE(stream.getIsTimeout() == !!(bits & 8) && stream.getIsDataLost() == !!(bits & 16)) << bits;
        bits & 1 ? stream.setIsFail(false) : stream.setIsBad(false);
        EXPECT_TRUE(stream.getIsGood()) << "false clears all bits";
    }
    Stream stream;
    for (const auto &[error, text] : {std::pair(ioImproperFunction, improper),
                                      {ioIncompatibleFormat, "incompatible format"},
                                      {static_cast<ioError>(6), "unknown error"}})
        EXPECT_EQ(failure([&, wanted = error] { stream.Throw(wanted); }), text);
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
    EXPECT_EQ(failure([&] { stream.setSerializer(&coder); }), improper);
    coder.code = ioSuccess;
    buffer.shown = std::string("\1\0\0\0", 4);
    EXPECT_EQ(stream.TryReadByte() + stream.TryReadInt() + stream.TryReadBool(), ioSuccess);
    EXPECT_EQ(stream.TryReadReal(), ioEndOfFile);
    EXPECT_EQ(stream.TryReadString(), ioEndOfFile);
    EXPECT_EQ(stream.TryWriteByte(1) + stream.TryWriteInt(1) + stream.TryWriteBool(1) +
                  stream.TryWriteReal(1.0) + stream.TryWriteString(""),
              ioSuccess);
    EXPECT_EQ(buffer.taken.written, std::string("\1\1\0\0\0\1\0\0\0\0\0\0\xF0\x3F\0\0\0\0", 18));
    EXPECT_EQ(stream.PeekNBytes(), 4U);
    coder.throws = true;
    EXPECT_THROW(stream.TryReadInt(), std::bad_alloc);
    EXPECT_TRUE(stream.getIsGood());
    EXPECT_GT(buffer.begun, 30);
    EXPECT_EQ(buffer.ended, buffer.begun) << "every trial that began has ended";
    buffer.tries = false;
    EXPECT_EQ(stream.PeekNBytes(), 0U);
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
        EXPECT_EQ(memory->PeekNBytes(), 0U);
        EXPECT_TRUE(target.written == data && second.written == data) << size;
        EXPECT_TRUE(source.getIsGood() && target.getIsGood() && memory->getIsGood());
        for (Stream *active : {&target, &source})
            EXPECT_EQ(failure([&] { active->setSerializer(ioSerializer::getXDR()); }), improper);
    }
}

TEST(CopyStream, Refuses) {
    ioBinarySerializer twin;
    Stream source, target, other(true, true, &twin), reader(false, true), writer(true, false), failed, closed;
    source.data = "abc";
    failed.setIsFail(true);
    closed.Close();
    const struct {
        Stream *target, *source, *blamed;
        const char *message;
    } cases[] = {
        {&other, &source, &source, "incompatible format"},  // encoders are told apart as objects
        {&source, &source, &source, "function \"CopyStream\" can not be called in the current context"},
        {&target, &writer, &writer, "input denied"},
        {&reader, &source, &reader, "output denied"},
        {&reader, &writer, &writer, "input denied"},  // the source first
        {&failed, &source, &failed, "conversion error"},
        {&closed, &source, &closed, "stream not open"},
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

TEST(Stream, DeclaresItsFields) {
    Stream stream(true, false), reader(false, true);
    xobject *object = &stream;
    EXPECT_EQ(static_cast<xobject *>(object->lookupfield("Serializer")), ioSerializer::getBinary());
    EXPECT_TRUE(object->lookupfield("CanWrite").getbool() && !object->lookupfield("CanRead").getbool());
    EXPECT_TRUE(object->lookupfield("ITimeout").isnil()) << "without limit is nil";
    kel::caught error = error_of(reader);
    EXPECT_EQ(static_cast<xobject *>(error->lookupfield("Stream")), &reader);
    EXPECT_STREQ(error->lookupfield("Msg").getstring(), "Stream Error (iolib):EOF reached");
    EXPECT_STREQ(xrtti_get_p_ioTryCode()->getenumvaluebyindex(ioNotSupported), "ioNotSupported");
    EXPECT_EQ(xrtti_get_p_ioEvent()->getparenttype(0), xrtti_get_p_evtEvent());
    std::string names;
    for (brtti *type : std::initializer_list<brtti *>{xrtti_get_p_ioEvent(), xrtti_get_p_ioEventType(),
                                                      xrtti_get_p_ioTryCode(), xrtti_get_p_ioError(),
                                                      xrtti_get_p_ioOpenMode(), xrtti_get_p_ioDirection(),
                                                      xrtti_get_p_ioPipeStream(), xrtti_get_p_ioPipe()})
        names += type->gettypename().Str() + std::string(" ");
    EXPECT_EQ(names,
              "iolib::Event iolib::EventType iolib::TryCode iolib::Error iolib::OpenMode "
              "iolib::Direction iolib::PipeStream iolib::Pipe ");
}

}  // namespace
