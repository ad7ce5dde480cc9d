// Comfort for C++ programs: the printer on a std::ostream, the owner of a caught exception, and the report
// of one that nobody caught.
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <optional>
#include <ostream>
#include <sstream>
#include <streambuf>

#include <kelstdmt/iolib_stream.h>
#include <kelstdmt/kel.h>
#include <kelstdmt/printlib.h>

#include "iolibsrc/printer.h"
#include "services/object_access.h"

// A std::ostream as a stream -------------------------------------------------------------------

namespace {

// Gathers what is written for another buffer. The flushes of a print, one a line, do not reach it.
class ostream_buffer : public xstreambuf, private std::streambuf {
public:
    explicit ostream_buffer(std::streambuf &target) noexcept : m_target(target) {
        setp(m_bytes, m_bytes + sizeof m_bytes);
        InitStreamBuf(this);
    }
    bool hand_over() {
        std::streamsize count = pptr() - pbase();
        setp(m_bytes, m_bytes + sizeof m_bytes);
        return count == 0 || m_target.sputn(m_bytes, count) == count;
    }

protected:
    int_type overflow(int_type character) override {
        if (!hand_over()) return traits_type::eof();
        if (!traits_type::eq_int_type(character, traits_type::eof())) {
            *pptr() = traits_type::to_char_type(character);
            pbump(1);
        }
        return traits_type::not_eof(character);
    }

private:
    std::streambuf &m_target;
    char m_bytes[2048];
};

// The buffer is there before the stream that asks for it.
struct buffer_first {
    explicit buffer_first(std::streambuf &target) noexcept : buffer(target) {}
    ostream_buffer buffer;
};

class ostream_stream : private buffer_first, public ioStream {
public:
    explicit ostream_stream(std::streambuf &target)
        : buffer_first(target), ioStream(ioSerializer::getAscii(), &buffer, true, false) {}
    ~ostream_stream() override { Close(); }

    // Whether all bytes were taken.
    bool finish() { return buffer.hand_over() && getIsGood(); }

private:
    void OnClose() override {}
};

// False if the printer could not finish.
bool print_on(std::ostream &out, xany value, bool single_line) {
    std::ostream::sentry ready(out);
    if (!ready) return true;
    out.width(0);
    ostream_stream stream(*out.rdbuf());
    std::unique_ptr<printData> options(printData::Create(single_line ? printIndentSameLine : 0));
    brtti *type = value.getrtti();
    bool complete =
        kel::detail::printer::Print(type ? *type : *get_xrttiany(), &stream, std::move(value), options.get());
    if (!stream.finish()) out.setstate(std::ios_base::badbit);
    return complete;
}

bool print_on(std::ostream &out, xobject *object, bool single_line) {
    // An object that nobody holds yet, such as a local one, outlives its print.
    std::optional<kel::detail::construction> fresh;
    if (kel::is_object(object) && xrcgetcount(object) == 0) fresh.emplace(object, 1U);
    try {
        return print_on(out, xany(object), single_line);
    } catch (xthrowable *thrown) {
        kel::caught untyped(thrown);
        out << "Can not finish printing\n";
        return false;
    }
}

}  // namespace

namespace kel {

void printed_value::print(std::ostream &out) const {
    if (m_refers)
        print_on(out, m_object, m_single_line);
    else
        print_on(out, m_value, m_single_line);
}

std::string printed_value::str() const {
    std::ostringstream out;
    print(out);
    return out.str();
}

// A caught exception ---------------------------------------------------------------------------

void caught::release(xthrowable *thrown) noexcept {
    kel::detail::release_flight(thrown);
}

void caught::rethrow() {
    if (!is_object(m_thrown)) kelhThrowNotInitialized();
    throw detach();
}

void *caught::downcast(xrtticlass *wanted) const {
    if (!is_object(m_thrown) || wanted == nullptr) return nullptr;
    xrtticlass *type = m_thrown->getrtti();
    if (type == nullptr || (type != wanted && !type->iskindof(wanted))) return nullptr;
    try {
        return m_thrown->dyndowncast(wanted);
    } catch (xthrowable *mismatch) {
        caught of_the_same_name(mismatch);
        return nullptr;
    }
}

xstring caught::description() const {
    if (auto *exception = as<kelXException>()) return exception->getDescription();
    xrtticlass *own = is_object(m_thrown) ? m_thrown->getrtti() : nullptr;
    for (const char *name : {"Description", "Msg"}) {
        brtti *type = own;  // a struct lists its own fields alone: the base class may have it
        while (type && type->isstruct() && !type->hasfield(name))
            type = type->getnparents() > 0 ? type->getparenttype(0) : nullptr;
        if (type == nullptr || !type->isstruct()) continue;
        try {
            xany text = type->lookupfield(name, static_cast<xobject *>(m_thrown));
            if (text.getkind() == xany::String) return text.getstring();
        } catch (xthrowable *thrown) {
            caught absent(thrown);
        }
    }
    return {};
}

xstring caught::type_name() const {
    xrtticlass *type = is_object(m_thrown) ? m_thrown->getrtti() : nullptr;
    return type ? type->gettypename() : xstring();
}

std::string caught::text() const {
    const xstring said = description();
    return std::string(view(view(said).empty() ? type_name() : said));
}

std::string take_text() {
    if (!std::current_exception()) return {};
    try {
        throw;
    } catch (xthrowable *thrown) {
        return caught(thrown).text();
    } catch (const std::exception &error) {
        return error.what();
    } catch (...) {
        return {};
    }
}

std::ostream &operator<<(std::ostream &out, const caught &error) {
    if (!print_on(out, static_cast<xobject *>(error.m_thrown), false)) out << error.description() << '\n';
    return out;
}

// An exception that nobody caught --------------------------------------------------------------

namespace {

std::atomic<std::terminate_handler> handler_before{nullptr};

void report(const caught &error) {
    std::ostringstream text;
    text << "kelstdmt: uncaught exception: " << error.description() << '\n' << error << '\n';
    std::string bytes = std::move(text).str();
    std::fwrite(bytes.data(), 1, bytes.size(), stderr);
}

[[noreturn]] void report_and_go_on() {
    thread_local bool reporting = false;
    if (std::current_exception() && !std::exchange(reporting, true)) {
        try {
            throw;
        } catch (xthrowable *thrown) {
            caught error(thrown);
            try {
                report(error);
            } catch (...) {
            }
            static_cast<void>(error.detach());  // still in flight: the handler before may look at it too
        } catch (...) {
        }
    }
    if (std::terminate_handler before = handler_before.load()) before();
    std::abort();
}

}  // namespace

void report_uncaught() {
    std::terminate_handler before = std::set_terminate(report_and_go_on);
    if (before != report_and_go_on) handler_before.store(before);
}

}  // namespace kel
