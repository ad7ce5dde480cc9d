// PCRE2, by its interpreter and by the machine code of its JIT.
#ifdef KELSTDMT_PEER_PCRE2
#define PCRE2_CODE_UNIT_WIDTH 8
#include <pcre2.h>

#include <memory>
#include <stdexcept>

#include "engines.h"

namespace bench {
namespace {

template <auto release>
struct Release {
    template <class T>
    void operator()(T *object) const {
        release(object);
    }
};

template <bool jit>
class Pcre {
public:
    using Subject = std::string_view;
    static Subject subject(const std::string &text) { return text; }
    static constexpr Unit unit = Unit::Bytes;

    Pcre(const std::string &pattern, bool ignore_case) {
        int error = 0;
        PCRE2_SIZE place = 0;
        m_code.reset(pcre2_compile(bytes(pattern), pattern.size(),
                                   PCRE2_UTF | (ignore_case ? PCRE2_CASELESS : 0u), &error, &place, nullptr));
        if (!m_code) throw std::runtime_error("pcre2_compile");
        if (jit && pcre2_jit_compile(m_code.get(), PCRE2_JIT_COMPLETE) != 0)
            throw std::runtime_error("pcre2_jit_compile");
        m_groups.reset(pcre2_match_data_create_from_pattern(m_code.get(), nullptr));
    }
    Answer find(Subject text, Span *spans, int count) { return find(text, 0, spans, count); }
    Answer find(Subject text, std::size_t from, Span *spans, int count) {
        // Our texts are valid, so that the peer need not look at every byte first.
        const int matched = pcre2_match(m_code.get(), bytes(text), text.size(), from, PCRE2_NO_UTF_CHECK,
                                        m_groups.get(), nullptr);
        if (matched == PCRE2_ERROR_NOMATCH) return Answer::None;
        if (matched < 0) return Answer::GaveUp;
        const PCRE2_SIZE *places = pcre2_get_ovector_pointer(m_groups.get());
        for (int i = 0; i < std::min(count, matched); ++i)
            if (places[2 * i] != PCRE2_UNSET)
                spans[i] = {static_cast<std::ptrdiff_t>(places[2 * i]),
                            static_cast<std::ptrdiff_t>(places[2 * i + 1])};
        return Answer::Found;
    }
    std::string_view expand(Subject line, std::array<char, 400> &out) {
        static const std::string format = "$3 $4: $5";
        PCRE2_SIZE size = out.size();
        const int replaced = pcre2_substitute(m_code.get(), bytes(line), line.size(), 0, PCRE2_NO_UTF_CHECK,
                                              m_groups.get(), nullptr, bytes(format), format.size(),
                                              reinterpret_cast<PCRE2_UCHAR *>(out.data()), &size);
        return {out.data(), replaced > 0 ? size : 0};
    }

private:
    static PCRE2_SPTR bytes(std::string_view text) { return reinterpret_cast<PCRE2_SPTR>(text.data()); }

    std::unique_ptr<pcre2_code, Release<pcre2_code_free>> m_code;
    std::unique_ptr<pcre2_match_data, Release<pcre2_match_data_free>> m_groups;
};

template <bool jit>
std::vector<Span> find_all(std::string_view text, const char *pattern) {
    Pcre<jit> engine(pattern, false);
    std::vector<Span> all;
    Span found;
    for (std::size_t from = 0; engine.find(text, from, &found, 1) == Answer::Found;) {
        all.push_back(found);
        from = static_cast<std::size_t>(found.end);
    }
    return all;
}

template <bool jit>
void add(Suite &suite) {
    const auto library = jit ? Library::PcreJit : Library::Pcre;
    const char *way = jit ? "pcre2_match with JIT" : "pcre2_match";
    add_engine<Pcre<jit>>(suite, library, way);
    add_any_case<Pcre<jit>>(suite, library, way);
    add_given_by_compiling<Pcre<jit>>(suite, library, way);
    add_template<Pcre<jit>>(suite, library, jit ? "pcre2_substitute with JIT" : "pcre2_substitute", [] {
        return [engine = std::make_shared<Pcre<jit>>(line_groups, false), out = std::array<char, 400>()](
                   std::string_view line) mutable { return engine->expand(line, out); };
    });
    add_all<Pcre<jit>>(suite, library, way, find_all<jit>, [](Digest &digest, const std::vector<Span> &all) {
        for (const Span &span : all)
            digest.add(span);
    });
    add_shell_by_expressions<Pcre<jit>>(suite, library, way);
}

}  // namespace

void add_pcre2(Suite &suite) {
    add<false>(suite);
    add<true>(suite);
}

}  // namespace bench
#endif
