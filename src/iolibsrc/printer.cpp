// The printer: the ways into it, the route of a value, and the bound of prints inside prints.
#include "iolibsrc/printer.h"

#include <cstdint>
#include <optional>

#include <kelstdmt/kel.h>

namespace kel::detail {

namespace {

// Prints inside prints --------------------------------------------------------------------------

// Bytes of native stack that the prints of a thread may take, counted from the outermost.
constexpr std::uintptr_t most_stack = 256 * 1024;

class nesting {
public:
    nesting() noexcept : m_outermost(outermost == 0) {
        if (m_outermost) outermost = here();
    }
    ~nesting() {
        if (m_outermost) outermost = 0;
    }
    nesting(const nesting &) = delete;
    nesting &operator=(const nesting &) = delete;

    void check() const {
        std::uintptr_t at = here(), taken = at < outermost ? outermost - at : at - outermost;
        if (taken <= most_stack) return;
        xrchandle<kelXFunc> function(construct<kelXFunc>("brtti::printvalue"));
        xrchandle<kelXExternFunc> thrown(
            construct<kelXExternFunc>("Values print each other without end.", function));
        xthrow(thrown.get());
    }

private:
    static std::uintptr_t here() noexcept {
        return reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0));
    }
    static thread_local constinit std::uintptr_t outermost;

    bool m_outermost;
};
thread_local constinit std::uintptr_t nesting::outermost = 0;

// The caller's options, or those of a print without any.
class options_in_use {
public:
    explicit options_in_use(printData *given) : m_own(given ? nullptr : printData::Create()), m_used(given) {
        if (m_own) m_used = m_own.get();
    }
    printData &operator*() const noexcept { return *m_used; }

private:
    std::unique_ptr<printData> m_own;
    printData *m_used;
};

}  // namespace

// One print, which may stand inside another of the same printData. It undoes what is left of it.
class printer::scope {
public:
    scope(printData &options, ioStream *stream) : m_run(of(options)) {
        m_base = m_run.m_frames.size();
        m_levels = m_run.m_levels.size();
        m_asked = std::exchange(m_run.m_asked, nullptr);
        m_outer = m_run.m_out.redirect(stream ? stream : ioStream::getStdout());
    }
    ~scope() {
        while (m_run.m_frames.size() > m_base) {
            frame last = std::move(m_run.m_frames.back());
            m_run.m_frames.pop_back();
        }
        m_run.m_levels.resize(m_levels);
        m_run.m_asked = m_asked;
        m_run.m_out.redirect(m_outer);
    }
    scope(const scope &) = delete;
    scope &operator=(const scope &) = delete;

    printer &run() const noexcept { return m_run; }
    void finish() const { m_run.Finish(m_base); }

private:
    static printer &of(printData &options) {
        if (!options.m_printer) options.m_printer = std::make_unique<printer>(options);
        return *options.m_printer;
    }

    printer &m_run;
    std::size_t m_base, m_levels;
    xobject *m_asked;
    ioStream *m_outer;
};

// Ways in --------------------------------------------------------------------------------------

bool printer::Print(brtti &type, ioStream *stream, xany &&value, printData *options) {
    options_in_use used(options);
    scope print(*used, stream);
    printer &run = print.run();
    // A failure is told with the indentation that it left behind.
    struct restore {
        int &indent;
        int before;
        bool failed;
        ~restore() {
            if (failed) indent = before;
        }
    } restored{(*used).m_Indent, (*used).m_Indent, true};
    try {
        nesting nested;
        nested.check();
        run.m_out.begin();
        type.OnRoutePrint(run.m_out.target(), std::move(value), &*used);
        print.finish();
        run.m_out.flush();
        restored.failed = false;
    } catch (xthrowable *thrown) {
        kel::caught error(thrown);
        run.Report();
    }
    return !restored.failed;
}

void printer::PrintPart(routine what, brtti &type, ioStream *stream, xany &&value, printData *options) {
    options_in_use used(options);
    nesting nested;
    nested.check();
    scope print(*used, stream);
    (print.run().*what)(type, std::move(value));
    print.finish();
    print.run().m_out.hand_over();
}

void printer::Report() {
    try {
        m_out.begin();
        LineBreak(m_options.m_Indent);
        Indentation(m_options.m_Indent);
        m_out.text("Can not finish printing");
        m_out.line_end();
    } catch (xthrowable *thrown) {
        kel::caught refused(thrown);
    }
}

// The route ------------------------------------------------------------------------------------

printer *printer::AtWork(ioStream *stream, printData *options) noexcept {
    printer *run = options ? options->m_printer.get() : nullptr;
    return run && run->m_out.target() == stream ? run : nullptr;
}

printer::question::question(printData *options, xobject *object) noexcept
    : m_printer(options ? options->m_printer.get() : nullptr) {
    if (m_printer) m_printer->m_asked = object;
}
printer::question::~question() {
    if (m_printer) m_printer->m_asked = nullptr;
}

printer *printer::AskedFor(xobject *object, ioStream *stream, printData *options) noexcept {
    printer *run = AtWork(stream, options);
    if (run == nullptr || run->m_asked != object) return nullptr;
    run->m_asked = nullptr;
    return run;
}

}  // namespace kel::detail

using kel::detail::printer;

// Reached from the printer alone: a value that is not an object is written or pushed in place.
void xrtti::OnRoutePrint(ioStream *stream, xany value, printData *options) {
    if (value.getkind() == xany::Object) {
        xobject *object = value;
        printer::question asked(options, object);
        object->printme(stream, options);
    } else if (printer *run = printer::AtWork(stream, options)) {
        run->Value(*this, std::move(value));
    } else {
        PrintImpl(stream, std::move(value), options);
    }
}

void xobject::onprint(ioStream *stream, printData *options) {
    requirertti()->PrintObjImpl(stream, this, options);
}

void xrtticlass::PrintObjImpl(ioStream *stream, xobject *object, printData *options) {
    if (printer *run = printer::AskedFor(object, stream, options))
        run->Composite(*this, object);
    else
        PrintClassImpl(stream, object, options);
}

// The public operations ------------------------------------------------------------------------

void brtti::printvalue(ioStream *stream, xany value, printData *options) {
    printer::Print(*this, stream, std::move(value), options);
}
void brtti::PrintImpl(ioStream *stream, xany value, printData *options) {
    printer::PrintPart(&printer::Value, *this, stream, std::move(value), options);
}
void brtti::PrintClassImpl(ioStream *stream, xany value, printData *options) {
    printer::PrintPart(&printer::Composite, *this, stream, std::move(value), options);
}

void xany::print(ioStream *stream, printData *options) const {
    brtti *type = getrtti();
    if (type == nullptr) kelXUnknownType::Throw(*this);
    type->printvalue(stream, *this, options);
}

void xobject::print(ioStream *stream, printData *options) {
    xrtticlass *type = requirertti();
    // An object that nobody holds yet is not deleted by its own print.
    std::optional<kel::detail::construction> fresh;
    if (xrcgetcount(this) == 0) fresh.emplace(this, 1U);
    type->printvalue(stream, this, options);
}
