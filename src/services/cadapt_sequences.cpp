// The sequences of the C interface: four families of the same functions, over one template.
#include <kelstdmt/xbasic.h>

#include "services/cadapt_slot.h"

namespace kel::detail {
namespace {

template <class S>
struct sequence_calls {
    using element = c_element<typename S::value_type>;
    using in = typename element::in;
    using out = typename element::out;

    // Runs the work on the sequence; with an answer, or without.
    template <class Result, class Work>
    static Result ask(xobject *sequence, Work work) {
        return parking(uninit_result<Result>(), [&]() -> Result {
            empty_exception_slot();
            const called_container<S> called(sequence);
            return work(*called);
        });
    }

    static int getarraysize(xobject *sequence) {
        return ask<int>(sequence, [](S &s) { return s.getarraysize(); });
    }

    // The usual case of the three calls that loops consist of: nothing in it can fail, so it needs neither a
    // frame nor a handler, and the call costs hardly more than the access.
    static S *at_hand(xobject *sequence) noexcept {
        return is_exception_slot_empty() ? exactly<S>(sequence) : nullptr;
    }
    static out get(xobject *sequence, int index) {
        const S *s = at_hand(sequence);
        if (s && static_cast<unsigned>(index) < static_cast<unsigned>(s->getarraysize())) [[likely]]
            return element::give(s->begin()[index]);
        return get_checked(sequence, index);
    }
    static void set(xobject *sequence, int index, in value) {
        if constexpr (std::is_same_v<in, typename S::value_type>) {
            if (S *s = at_hand(sequence)) [[likely]] {
                const int count = s->getarraysize();
                if (static_cast<unsigned>(index) < static_cast<unsigned>(count)) {
                    s->begin()[index] = value;
                    return;
                }
                if (index == count && s->GetCapacity() - s->GetSize() >= sizeof value)
                    return s->append(value);
            }
        }
        set_checked(sequence, index, value);
    }
    [[gnu::noinline]] static out get_checked(xobject *sequence, int index) {
        return ask<out>(sequence, [=](S &s) { return element::give(std::as_const(s)[index]); });
    }
    [[gnu::noinline]] static void set_checked(xobject *sequence, int index, in value) {
        change<S>(sequence, [=](S &s) {
            if (index == s.getarraysize())
                s.append(element::take(value));
            else
                s.set(index, element::take(value));
        });
    }

    static void insert(xobject *sequence, int index, in value) {
        change<S>(sequence, [=](S &s) { s.insert(index, element::take(value)); });
    }
    static void insertseq(xobject *sequence, int index, xobject *other) {
        change<S>(sequence, [=](S &s) {
            const called_container<S> from(other);
            s.insertseq(index, *from);
        });
    }
    static void removerange(xobject *sequence, int a, int b) {
        change<S>(sequence, [=](S &s) { s.removerange(a, b); });
    }
};

}  // namespace
}  // namespace kel::detail

#define KEL_C_SEQUENCE(S)                                                                     \
    xobject *S##_create() {                                                                   \
        return kel::detail::create_container<S>();                                            \
    }                                                                                         \
    int S##_getarraysize(xobject *sequence) {                                                 \
        return kel::detail::sequence_calls<S>::getarraysize(sequence);                        \
    }                                                                                         \
    kel::detail::sequence_calls<S>::out S##_get(xobject *sequence, int index) {               \
        return kel::detail::sequence_calls<S>::get(sequence, index);                          \
    }                                                                                         \
    void S##_set(xobject *sequence, int index, kel::detail::sequence_calls<S>::in value) {    \
        kel::detail::sequence_calls<S>::set(sequence, index, value);                          \
    }                                                                                         \
    void S##_insert(xobject *sequence, int index, kel::detail::sequence_calls<S>::in value) { \
        kel::detail::sequence_calls<S>::insert(sequence, index, value);                       \
    }                                                                                         \
    void S##_insertseq(xobject *sequence, int index, xobject *other) {                        \
        kel::detail::sequence_calls<S>::insertseq(sequence, index, other);                    \
    }                                                                                         \
    void S##_removerange(xobject *sequence, int a, int b) {                                   \
        kel::detail::sequence_calls<S>::removerange(sequence, a, b);                          \
    }                                                                                         \
    xrtticlass *S##_getclassrtti_c() {                                                        \
        return kel::detail::class_descriptor<S>();                                            \
    }

KEL_C_SEQUENCE(xintsequence)
KEL_C_SEQUENCE(xboolsequence)
KEL_C_SEQUENCE(xrealsequence)
KEL_C_SEQUENCE(xstringsequence)
