// The eight families of the C interface against std::vector and std::map: bytes choose calls, objects,
// indexes and values, right and wrong ones, and after each call the answer, the exception slot and the
// references must be what the model says. Used with random bytes by a test and with chosen ones by a fuzz
// target.
#pragma once

#include <algorithm>
#include <climits>
#include <cstdint>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include <kelstdmt/kelstdmt_c.h>
#include <kelstdmt/xbasic.h>
#include <kelstdmt/xexception.h>

namespace c_families {

inline void require(bool holds, const std::string &what) {
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

private:
    const std::uint8_t *m_at, *m_end;
};

// A text that the caller owns a hold on, as a value; nothing for the nil text.
using Text = std::optional<std::string>;
inline Text taken(const char *text) {
    require(text != XTEXT_UNINIT_C, "a text is uninit");
    Text value = XISTEXT_C(text) ? Text(text) : std::nullopt;
    xstrunlock_c(text);
    return value;
}
template <class Scalar>
Scalar taken(Scalar value) {
    return value;
}

constexpr char none[] = "", negative[] = "kellib::XNegativeIndex",
               beyond_sequence[] = "kellib::XInvalidSeqIndex",
               beyond_dictionary[] = "kellib::XInvalidDictIndex", native[] = "kellib::XNativeException",
               uninitialized[] = "kellib::XNotInitialized", mismatch[] = "kellib::XTypeMismatch";

// What is in the slot; it is empty afterwards.
inline void require_failure(const std::string &expected) {
    const std::string found = taken(xgetexctypename_c()).value_or("");
    require(found == expected, "expected \"" + expected + "\", the slot has \"" + found + '"');
    require(xisexc_c() == !expected.empty(), "the slot is full or empty");
    xcleanupexc_c();
}

template <class T>
struct Values {
    using model = T;
    static constexpr T uninit = std::is_same_v<T, int>             ? T(XINT_UNINIT_C)
                                : std::is_same_v<T, unsigned char> ? T(XBOOL_UNINIT_C)
                                                                   : T(XREAL_UNINIT_C);
    static T c(T value) { return value; }
    static T pick(Choice &choice) { return choice.below(5) == 0 ? uninit : static_cast<T>(choice.byte()); }
};
template <>
struct Values<Text> {
    using model = Text;
    static inline const char *const uninit = XTEXT_UNINIT_C;
    static const char *c(const Text &value) { return value ? value->c_str() : nullptr; }
    static Text pick(Choice &choice) {
        if (choice.below(5) == 0) return std::nullopt;
        return std::string(static_cast<std::size_t>(choice.below(40)),
                           static_cast<char>('a' + choice.below(26)));
    }
};

// A container, held by a count or somebody's member, and what a caller may take it for.
template <class F>
class Subject {
public:
    explicit Subject(bool counted) {
        if (counted) m_held = xrchandle<xobject>::adopt(F::create());
    }
    xobject *own() { return m_held ? m_held.get() : static_cast<xobject *>(&m_member); }
    xobject *pick(Choice &choice, std::string &fault) {
        const int chosen = choice.byte();
        if (chosen < 230) return own();
        const char *faults[] = {uninitialized, uninitialized, mismatch};
        xobject *objects[] = {nullptr, XOBJECT_UNINIT_C, m_stranger};
        if (fault.empty()) fault = faults[chosen % 3];
        return objects[chosen % 3];
    }
    void require_references() {
        require(xrcgetcount(own()) == (m_held ? 1 : 0), "references on the container");
        require(xrcgetcount(m_stranger) == 1, "references on an object of another class");
    }

private:
    xrchandle<xobject> m_held, m_stranger = kel::construct<kelXFunc>("a stranger");
    xauto<typename F::container> m_member;
};

template <class F>
class SequenceModel {
public:
    explicit SequenceModel(Choice &choice) : m_sequence(choice.below(2)), m_other(choice.below(2)) {
        for (int i = choice.below(4); i > 0; --i) {
            m_added.push_back(F::pick(choice));
            F::set(m_other.own(), static_cast<int>(m_added.size()) - 1, F::c(m_added.back()));
        }
    }

    void step(Choice &choice) {
        std::string expected;
        xobject *const object = m_sequence.pick(choice, expected);
        const int count = static_cast<int>(m_model.size());
        const int action = count > 200 ? 5 : choice.below(6);
        const int index = choice.index(count), second = choice.index(count);
        const auto expect = [&](const char *fault) {
            if (expected.empty()) expected = fault;
            return expected.empty();
        };
        const auto gap = [&](std::size_t more) {
            const auto missing = static_cast<std::size_t>(std::max(index - count, 0));
            m_model.insert(m_model.begin() + std::min(index, count), more + missing, {});
            return m_model.begin() + index;
        };
        if (action == 0) {
            const auto found = F::get(object, index);
            if (expect(index < 0 ? negative : index >= count ? beyond_sequence : none))
                require(taken(found) == m_model[static_cast<std::size_t>(index)], "get");
            else
                require(found == F::uninit, "get: uninit");
        } else if (action < 3) {
            const auto value = F::pick(choice);
            (action == 1 ? F::set : F::insert)(object, index, F::c(value));
            if (expect(index < 0 ? negative : index == INT_MAX ? native : none))
                *(action == 1 && index < count ? m_model.begin() + index : gap(1)) = value;
        } else if (action == 3) {
            xobject *const other = m_other.pick(choice, expected);
            F::insertseq(object, index, other);
            if (expect(index < 0 ? negative : index == INT_MAX ? native : none))
                std::copy(m_added.begin(), m_added.end(), gap(m_added.size()));
        } else if (action == 4) {
            require(F::getarraysize(object) == (expect(none) ? count : XINT_UNINIT_C), "getarraysize");
        } else {
            F::removerange(object, index, second);
            const int low = std::min({index, second, count}), high = std::min(std::max(index, second), count);
            if (expect(low < 0 ? negative : none))
                m_model.erase(m_model.begin() + low, m_model.begin() + high);
        }
        require_failure(expected);
        require(F::getarraysize(m_sequence.own()) == static_cast<int>(m_model.size()), "the size afterwards");
        m_sequence.require_references();
        m_other.require_references();
    }
    void finish() {
        for (std::size_t i = 0; i < m_model.size(); ++i)
            require(taken(F::get(m_sequence.own(), static_cast<int>(i))) == m_model[i], "an element");
        F::insertseq(m_sequence.own(), 0, m_sequence.own());
        require(F::getarraysize(m_sequence.own()) == static_cast<int>(2 * m_model.size()), "doubled");
    }

private:
    Subject<F> m_sequence, m_other;
    std::vector<typename F::model> m_model, m_added;
};

template <class F>
class DictionaryModel {
public:
    explicit DictionaryModel(Choice &choice) : m_dictionary(choice.below(2)) {}

    void step(Choice &choice) {
        const std::string name = "key" + std::to_string(choice.below(90));
        const char *const keys[] = {name.c_str(), "", "\xc3\xa9", nullptr, XTEXT_NIL_C, XTEXT_UNINIT_C};
        const char *const key = keys[std::max(0, choice.byte() - 250)];
        const std::string text = XISTEXT_C(key) ? key : "";
        std::string expected;
        xobject *const own = m_dictionary.own(), *const object = m_dictionary.pick(choice, expected);
        const int slots = xgetndictelems_c(own), slot = choice.index(slots);
        const char *key_in_slot = nullptr;
        const bool live = F::getkeybyindex(own, slot, &key_in_slot) == 1;
        require_failure(slot < 0 ? negative : none);
        require(live || key_in_slot == XTEXT_UNINIT_C, "getkeybyindex: uninit");
        const std::string there = live ? *taken(key_in_slot) : "";
        const auto value = F::pick(choice);
        auto found = F::c(value);
        auto *const place = choice.below(8) == 0 ? nullptr : &found;
        const auto expect = [&](bool fails, const char *fault) {
            if (expected.empty() && fails) expected = fault;
            return expected.empty();
        };
        const auto require_found = [&](int answer, bool present, const std::string &under) {
            require(answer == (expected.empty() ? int{present} : XBOOL_UNINIT_C), "the answer of a search");
            if (!place) return;
            if (answer == 1)
                require(taken(found) == m_model.at(under), "the value found");
            else
                require(found == F::uninit, "the value not found");
        };
        switch (choice.below(7)) {
            case 0: {
                const int answer = F::find(object, key, place);
                require_found(answer, XISTEXT_C(key) && m_model.count(text), text);
                if (place == nullptr && answer == 1) require(m_model.count(text) == 1, "find");
                break;
            }
            case 1:
            case 2:
                F::set(object, key, F::c(value));
                if (expect(false, none) && XISTEXT_C(key)) m_model[text] = value;
                break;
            case 3: {
                const int answer = F::getbyindex(object, slot, place);
                expect(slot < 0, negative);
                require_found(answer, live, there);
                break;
            }
            case 4:
                F::setbyindex(object, slot, F::c(value));
                if (expect(slot < 0, negative) && expect(slot >= slots, beyond_dictionary) && live)
                    m_model.at(there) = value;
                break;
            case 5:
                F::remove(object, key);
                if (expect(false, none) && XISTEXT_C(key)) m_model.erase(text);
                break;
            default:
                F::removebyindex(object, slot);
                if (expect(slot < 0, negative) && expect(slot >= slots, beyond_dictionary) && live)
                    m_model.erase(there);
        }
        require_failure(expected);
        m_dictionary.require_references();
    }
    void finish() {
        for (auto &[key, value] : m_model) {
            auto found = F::c(value);
            require(F::find(m_dictionary.own(), key.c_str(), &found) == 1, "a key is lost");
            require(taken(found) == value, "a value");
        }
        int live = 0;
        for (int slot = xgetndictelems_c(m_dictionary.own()); slot-- > 0;)
            live += F::getbyindex(m_dictionary.own(), slot, nullptr);
        require(live == static_cast<int>(m_model.size()), "live slots");
    }

private:
    Subject<F> m_dictionary;
    std::map<std::string, typename F::model> m_model;
};

template <class Model>
void run(Choice &choice) {
    Model model(choice);
    while (choice.more())
        model.step(choice);
    model.finish();
}

#define C_FAMILY(NAME, T, MODEL)  \
    struct NAME : Values<MODEL> { \
        using container = T;      \
        static constexpr auto create = T##_create;
#define C_SEQUENCE(NAME, T, MODEL)                         \
    C_FAMILY(NAME, T, MODEL)                               \
    static constexpr auto getarraysize = T##_getarraysize; \
    static constexpr auto get = T##_get;                   \
    static constexpr auto set = T##_set;                   \
    static constexpr auto insert = T##_insert;             \
    static constexpr auto insertseq = T##_insertseq;       \
    static constexpr auto removerange = T##_removerange;   \
    }                                                      \
    ;
#define C_DICTIONARY(NAME, T, MODEL)                         \
    C_FAMILY(NAME, T, MODEL)                                 \
    static constexpr auto find = T##_find;                   \
    static constexpr auto set = T##_set;                     \
    static constexpr auto getbyindex = T##_getbyindex;       \
    static constexpr auto getkeybyindex = T##_getkeybyindex; \
    static constexpr auto setbyindex = T##_setbyindex;       \
    static constexpr auto remove = T##_remove;               \
    static constexpr auto removebyindex = T##_removebyindex; \
    }                                                        \
    ;
C_SEQUENCE(ints, xintsequence, int)
C_SEQUENCE(bools, xboolsequence, unsigned char)
C_SEQUENCE(reals, xrealsequence, double)
C_SEQUENCE(texts, xstringsequence, Text)
C_DICTIONARY(int_table, xintdictionary, int)
C_DICTIONARY(bool_table, xbooldictionary, unsigned char)
C_DICTIONARY(real_table, xrealdictionary, double)
C_DICTIONARY(text_table, xstringdictionary, Text)

// The families in turn: the first byte chooses.
inline void drive(const std::uint8_t *data, std::size_t size) {
    constexpr void (*all[])(Choice &) = {run<SequenceModel<ints>>,         run<SequenceModel<bools>>,
                                         run<SequenceModel<reals>>,        run<SequenceModel<texts>>,
                                         run<DictionaryModel<int_table>>,  run<DictionaryModel<bool_table>>,
                                         run<DictionaryModel<real_table>>, run<DictionaryModel<text_table>>};
    Choice choice(data, size);
    all[choice.below(8)](choice);
}

}  // namespace c_families
