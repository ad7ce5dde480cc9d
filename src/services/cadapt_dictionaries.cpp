// The dictionaries of the C interface: four families of the same functions, over one template.
#include <kelstdmt/xbasic.h>

#include "services/cadapt_slot.h"

namespace kel::detail {
namespace {

template <class D>
struct dictionary_calls {
    using value_type = typename D::value_type;
    using element = c_element<value_type>;
    using in = typename element::in;
    using out = typename element::out;

    // A search: what it found comes out when it answers true.
    template <class Found, class Out, class Search>
    static xbool search(xobject *dictionary, Out *place, Search find) {
        if (place) mark_uninit(*place);
        return parking(uninit_bool, [&]() -> xbool {
            empty_exception_slot();
            const called_container<D> called(dictionary);
            Found found{};
            if (!find(*called, found)) return 0;
            if (place) *place = c_element<Found>::give(found);
            return 1;
        });
    }

    static xbool find(xobject *dictionary, const char *key, out *value) {
        return search<value_type>(dictionary, value, [=](D &d, value_type &to) { return d.find(key, to); });
    }
    static xbool getbyindex(xobject *dictionary, int slot, out *value) {
        return search<value_type>(dictionary, value,
                                  [=](D &d, value_type &to) { return d.getbyindex(slot, to); });
    }
    static xbool getkeybyindex(xobject *dictionary, int slot, const char **key) {
        return search<xstring>(dictionary, key, [=](D &d, xstring &to) { return d.getkeybyindex(slot, to); });
    }
    static void set(xobject *dictionary, const char *key, in value) {
        change<D>(dictionary, [=](D &d) { d.set(key, element::take(value)); });
    }
    static void setbyindex(xobject *dictionary, int slot, in value) {
        change<D>(dictionary, [=](D &d) { d.setbyindex(slot, element::take(value)); });
    }
    static void remove(xobject *dictionary, const char *key) {
        change<D>(dictionary, [=](D &d) { d.remove(key); });
    }
    static void removebyindex(xobject *dictionary, int slot) {
        change<D>(dictionary, [=](D &d) { d.removebyindex(slot); });
    }
};

}  // namespace
}  // namespace kel::detail

#define KEL_C_DICTIONARY(D)                                                                              \
    xobject *D##_create() {                                                                              \
        return kel::detail::create_container<D>();                                                       \
    }                                                                                                    \
    xbool D##_find(xobject *dictionary, const char *key, kel::detail::dictionary_calls<D>::out *value) { \
        return kel::detail::dictionary_calls<D>::find(dictionary, key, value);                           \
    }                                                                                                    \
    xbool D##_getbyindex(xobject *dictionary, int slot, kel::detail::dictionary_calls<D>::out *value) {  \
        return kel::detail::dictionary_calls<D>::getbyindex(dictionary, slot, value);                    \
    }                                                                                                    \
    xbool D##_getkeybyindex(xobject *dictionary, int slot, const char **key) {                           \
        return kel::detail::dictionary_calls<D>::getkeybyindex(dictionary, slot, key);                   \
    }                                                                                                    \
    void D##_set(xobject *dictionary, const char *key, kel::detail::dictionary_calls<D>::in value) {     \
        kel::detail::dictionary_calls<D>::set(dictionary, key, value);                                   \
    }                                                                                                    \
    void D##_setbyindex(xobject *dictionary, int slot, kel::detail::dictionary_calls<D>::in value) {     \
        kel::detail::dictionary_calls<D>::setbyindex(dictionary, slot, value);                           \
    }                                                                                                    \
    void D##_remove(xobject *dictionary, const char *key) {                                              \
        kel::detail::dictionary_calls<D>::remove(dictionary, key);                                       \
    }                                                                                                    \
    void D##_removebyindex(xobject *dictionary, int slot) {                                              \
        kel::detail::dictionary_calls<D>::removebyindex(dictionary, slot);                               \
    }                                                                                                    \
    xrtticlass *D##_getclassrtti_c() {                                                                   \
        return kel::detail::class_descriptor<D>();                                                       \
    }

KEL_C_DICTIONARY(xintdictionary)
KEL_C_DICTIONARY(xbooldictionary)
KEL_C_DICTIONARY(xrealdictionary)
KEL_C_DICTIONARY(xstringdictionary)
