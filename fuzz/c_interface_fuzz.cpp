// The eight families of the C interface beside the C++ classes behind them, which tests of their own hold
// against models: bytes choose calls, objects, indexes, keys and values, right and wrong ones. What a
// function does to one container is done in C++ to its twin, and both must answer, fail and look the same.
#include <kelstdmt/kel.h>
#include <kelstdmt/kelstdmt_c.h>
#include <kelstdmt/xbasic.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <utility>

namespace {

void require(bool holds, const std::string &what) {
    if (!holds) throw std::logic_error(what);
}

// The bytes that choose; 0 when they are used up.
class Choice {
public:
    Choice(const std::uint8_t *data, std::size_t size) : m_at(data), m_end(data + size) {}
    bool more() const { return m_at != m_end; }
    int byte() { return more() ? *m_at++ : 0; }
    int below(int bound) { return byte() % bound; }
    // Around the elements, and now and then far beyond them.
    int index(int count) {
        const int chosen = byte();
        return chosen < 240 ? chosen % (count + 4) - 1 : chosen < 248 ? INT_MAX : INT_MIN;
    }
    template <class V>
    V value() {
        const bool marker = below(5) == 0;
        if constexpr (std::is_same_v<V, xstring>) {
            if (marker) return {};
            return std::string(static_cast<std::size_t>(below(40)), static_cast<char>('a' + below(26)))
                .c_str();
        } else if constexpr (std::is_same_v<V, int>) {
            return marker ? XINT_UNINIT_C : byte();
        } else {
            return marker ? uninit(V{}) : static_cast<V>(byte());
        }
    }

private:
    static xbool uninit(xbool) { return XBOOL_UNINIT_C; }
    static double uninit(double) { return XREAL_UNINIT_C; }

    const std::uint8_t *m_at, *m_end;
};

// A value as it crosses. A text that came is given back.
template <class V>
V crossing(V value) {
    return value;
}
const char *crossing(const xstring &text) {
    return text.IsNull() ? nullptr : text.Str();
}
template <class V>
void require_same(V found, V wanted) {
    require(found == wanted, "another value");
}
void require_same(const char *found, const xstring &wanted) {
    require(XISTEXT_C(found) ? wanted == xstring(found) : wanted.IsNull() && found != XTEXT_UNINIT_C,
            "another text");
    xstrunlock_c(found);
}

template <class V>
using crossed = decltype(crossing(V{}));

template <class S>
struct Sequence {
    using type = S;
    using C = crossed<typename S::value_type>;
    xobject *(*create)();
    int (*getarraysize)(xobject *);
    C (*get)(xobject *, int);
    void (*set)(xobject *, int, C), (*insert)(xobject *, int, C), (*insertseq)(xobject *, int, xobject *),
        (*removerange)(xobject *, int, int);
};
template <class D>
struct Dictionary {
    using type = D;
    using C = crossed<typename D::value_type>;
    xobject *(*create)();
    xbool (*find)(xobject *, const char *, C *), (*getbyindex)(xobject *, int, C *),
        (*getkeybyindex)(xobject *, int, const char **);
    void (*set)(xobject *, const char *, C), (*setbyindex)(xobject *, int, C),
        (*remove)(xobject *, const char *), (*removebyindex)(xobject *, int);
};

// A container, held by a count or somebody's member, and its twin.
template <class Functions>
struct Subject {
    using T = typename Functions::type;

    Subject(Choice &chosen, const Functions &functions)
        : choice(chosen),
          c(functions),
          counted(choice.below(2)),
          held(xrchandle<T>::adopt(T::cast(functions.create()))) {}
    T &own() { return counted ? *held : member; }
    // One of the other kind.
    T &other() { return counted ? member : *held; }
    // What a caller may take for a container, and how it is refused.
    std::pair<xobject *, const char *> object(T &right) {
        const std::pair<xobject *, const char *> wrong[] = {{nullptr, "kellib::XNotInitialized"},
                                                            {XOBJECT_UNINIT_C, "kellib::XNotInitialized"},
                                                            {stranger, "kellib::XTypeMismatch"}};
        const int chosen = choice.byte();
        return chosen < 230 ? std::pair<xobject *, const char *>(&right, "") : wrong[chosen % 3];
    }
    // Whether the call succeeded, as it has to.
    template <class Same, class Call>
    bool both(Same same, Call call) {
        const auto [chosen, refusal] = object(own());
        std::string expected = refusal;
        try {
            if (chosen == &own()) same(twin);
        } catch (xthrowable *thrown) {
            expected = kel::caught(thrown).type_name();
        } catch (const std::exception &) {
            expected = "kellib::XNativeException";
        }
        call(chosen);
        require(xisexc_c() == !expected.empty(), "the slot is full or empty, expected " + expected);
        const char *type = xgetexctypename_c();
        require(expected == (XISTEXT_C(type) ? type : ""), "expected \"" + expected + "\" in the slot");
        xstrunlock_c(type);
        xcleanupexc_c();
        require(xrcgetcount(held) == 1 && xrcgetcount(&member) == 0 && xrcgetcount(stranger) == 1,
                "references");
        return expected.empty();
    }
    // The same for what answers: a value, or uninit.
    template <class Value, class Same, class Call>
    void answer(Same same, Call call) {
        Value wanted{};
        crossed<Value> found{};
        if (both([&](T &t) { wanted = same(t); }, [&](xobject *o) { found = call(o); }))
            require_same(found, wanted);
        else
            require(kel::is_uninit(found), "a failure answers uninit");
    }
    // And what says whether it found something, which it puts into a place if it is given one.
    template <class Value, class Same, class Call>
    void search(Same same, Call call) {
        Value wanted{};
        crossed<Value> found{}, *place = choice.below(8) == 0 ? nullptr : &found;
        bool there = false;
        xbool answer = 0;
        const bool done =
            both([&](T &t) { there = same(t, wanted); }, [&](xobject *o) { answer = call(o, place); });
        require(done ? answer == there : kel::is_uninit(answer), "the answer of a search");
        if (place && answer == 1)
            require_same(found, wanted);
        else if (place)
            require(kel::is_uninit(found), "the value not found");
    }

    Choice &choice;
    const Functions &c;
    const bool counted;
    xrchandle<T> held;
    xrchandle<xobject> stranger = kel::construct<kelXFunc>("a stranger");
    xauto<T> member, twin;
};

template <class S>
void step(Subject<Sequence<S>> &s) {
    using V = typename S::value_type;
    const int count = s.twin.getarraysize(), action = count > 200 ? 5 : s.choice.below(6);
    const int index = s.choice.index(count), second = s.choice.index(count);
    const V value = s.choice.template value<V>();
    if (action == 0) {
        s.template answer<V>([&](S &t) { return V(t.get(index)); },
                             [&](xobject *o) { return s.c.get(o, index); });
    } else if (action == 1) {
        s.both([&](S &t) { t.set(index, value); }, [&](xobject *o) { s.c.set(o, index, crossing(value)); });
    } else if (action == 2) {
        s.both([&](S &t) { t.insert(index, value); },
               [&](xobject *o) { s.c.insert(o, index, crossing(value)); });
    } else if (action == 3) {
        S &from = s.choice.below(3) ? s.other() : s.own();
        const auto picked = s.object(from);
        s.both(
            [&, refused = std::string(picked.second)](S &t) {
                if (refused == "kellib::XTypeMismatch") kelXTypeMismatch::Throw("", nullptr);
                if (!refused.empty()) kelhThrowNotInitialized();
                t.insertseq(index, &from == &s.own() ? t : from);
            },
            [&](xobject *o) { s.c.insertseq(o, index, picked.first); });
    } else if (action == 4) {
        s.template answer<int>([&](S &t) { return t.getarraysize(); }, s.c.getarraysize);
    } else {
        s.both([&](S &t) { t.removerange(index, second); },
               [&](xobject *o) { s.c.removerange(o, index, second); });
    }
    require(std::ranges::equal(s.own(), s.twin), "the twins differ");
}

template <class D>
void step(Subject<Dictionary<D>> &s) {
    using V = typename D::value_type;
    const std::string name = "key" + std::to_string(s.choice.below(90));
    const char *const keys[] = {name.c_str(), "", "\xc3\xa9", nullptr, XTEXT_NIL_C, XTEXT_UNINIT_C};
    const char *const key = keys[std::max(0, s.choice.byte() - 250)];
    const int slot = s.choice.index(s.twin.getsize());
    const V value = s.choice.template value<V>();
    const auto in = crossing(value);
    using Place = crossed<V> *;
    switch (s.choice.below(8)) {
        case 0:
            s.template search<V>([&](D &t, V &to) { return t.find(key, to); },
                                 [&](xobject *o, Place to) { return s.c.find(o, key, to); });
            break;
        case 1:
            s.template search<V>([&](D &t, V &to) { return t.getbyindex(slot, to); },
                                 [&](xobject *o, Place to) { return s.c.getbyindex(o, slot, to); });
            break;
        case 2:
            s.template search<xstring>(
                [&](D &t, xstring &to) { return t.getkeybyindex(slot, to); },
                [&](xobject *o, const char **to) { return s.c.getkeybyindex(o, slot, to); });
            break;
        case 3:
            s.both([&](D &t) { t.setbyindex(slot, value); },
                   [&](xobject *o) { s.c.setbyindex(o, slot, in); });
            break;
        case 4:
            s.both([&](D &t) { t.remove(key); }, [&](xobject *o) { s.c.remove(o, key); });
            break;
        case 5:
            s.both([&](D &t) { t.removebyindex(slot); }, [&](xobject *o) { s.c.removebyindex(o, slot); });
            break;
        default:
            s.both([&](D &t) { t.set(key, value); }, [&](xobject *o) { s.c.set(o, key, in); });
    }
    require(std::ranges::equal(s.own(), s.twin,
                               [](const auto &a, const auto &b) {
                                   return std::string(a.key) == b.key && a.value == b.value;
                               }),
            "the twins differ");
}

template <template <class> class Functions, class T>
void run(Choice &choice, const Functions<T> &functions) {
    Subject<Functions<T>> subject(choice, functions);
    if constexpr (requires { subject.own().append({}); })
        for (int i = choice.below(4); i > 0; --i)
            subject.other().append(choice.value<typename T::value_type>());
    while (choice.more())
        step(subject);
}

#define SEQUENCE(S)                                                                                    \
    run(choice, Sequence<S>{S##_create, S##_getarraysize, S##_get, S##_set, S##_insert, S##_insertseq, \
                            S##_removerange})
#define DICTIONARY(D)                                                                           \
    run(choice, Dictionary<D>{D##_create, D##_find, D##_getbyindex, D##_getkeybyindex, D##_set, \
                              D##_setbyindex, D##_remove, D##_removebyindex})

}  // namespace

// The families in turn: the first byte chooses.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    // A key that is no text is reported, each time.
    static const btkAbortHandler before = btkSetAbortHandler([](const char *, const char *, int) {});
    static_cast<void>(before);
    constexpr void (*all[])(Choice &) = {[](Choice &choice) { SEQUENCE(xintsequence); },
                                         [](Choice &choice) { SEQUENCE(xboolsequence); },
                                         [](Choice &choice) { SEQUENCE(xrealsequence); },
                                         [](Choice &choice) { SEQUENCE(xstringsequence); },
                                         [](Choice &choice) { DICTIONARY(xintdictionary); },
                                         [](Choice &choice) { DICTIONARY(xbooldictionary); },
                                         [](Choice &choice) { DICTIONARY(xrealdictionary); },
                                         [](Choice &choice) { DICTIONARY(xstringdictionary); }};
    Choice choice(data, size);
    all[choice.below(8)](choice);
    return 0;
}
