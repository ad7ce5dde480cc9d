// The object functions and the texts of the C interface.
#include <iostream>

#include <kelstdmt/kel.h>

#include "services/cadapt_slot.h"

using namespace kel::detail;

namespace {

// What a question about an object answers: fixed values for the two objects that are none.
template <class Result, class Work>
Result ask(xobject *object, Result nil, Result uninit, Result failed, Work work) {
    if (!kel::is_object(object)) return object == nullptr ? nil : uninit;
    return parking(failed, [&] {
        const call_hold hold(object);
        return work();
    });
}

}  // namespace

// Texts --------------------------------------------------------------------------------------------

char *xstrcreate_c(const char *text) {
    return parking(const_cast<char *>(kel::uninit_text()), [text] { return buffer_copy(text); });
}

char *xstrlock_c(const char *text) {
    char *buffer = const_cast<char *>(text);
    return kel::is_text(text) ? buffer_share(buffer) : buffer;
}

void xstrunlock_c(const char *text) {
    if (kel::is_text(text)) buffer_drop(const_cast<char *>(text));
}

// Objects ------------------------------------------------------------------------------------------

void xrcattach_c(xobject *object) {
    parking([object] { xrcuniattach(object); });
}

void xrcrelease_c(xobject *object) {
    parking([object] { xrcunirelease(object); });
}

// No hold here: it would outlive the object.
void xdelete_c(xobject *object) {
    if (!kel::is_object(object)) return;
    parking([object] {
        if (object->isrefcountable())
            xrcrelease(object);
        else
            xdelete(object);
    });
}

const char *xgettypename_c(xobject *object) {
    return ask(object, kel::nil_text(), kel::nil_text(), kel::uninit_text(),
               [object] { return handed_out(object->gettypename()); });
}

xrtticlass *xgetrtti_c(xobject *object) {
    xrtticlass *const none = nullptr;
    return ask(object, none, none, none, [object] { return object->getrtti(); });
}

unsigned char xisobjsameas_c(xobject *object, xrtticlass *descriptor) {
    return ask<xbool>(object, 1, 0, kel::uninit_bool, [=] { return xbool{object->issameas(descriptor)}; });
}

unsigned char xisobjkindof_c(xobject *object, xrtticlass *descriptor) {
    return ask<xbool>(object, 1, 0, kel::uninit_bool, [=] { return xbool{object->iskindof(descriptor)}; });
}

void xprint_c(xobject *object) {
    parking([object] {
        if (!kel::is_object(object)) {
            std::cout << (object == nullptr ? "nil" : "uninit");
            return;
        }
        const call_hold hold(object);
        object->print();
    });
}

const char *xprinttext_c(xobject *object) {
    return parking(kel::uninit_text(), [object] {
        const call_hold hold(object);
        return handed_out(xstring(kel::printed(object).str().c_str()));
    });
}

int xgetndictelems_c(xobject *object) {
    return ask(object, 0, 0, kel::uninit_int, [object] { return object->getndictelems(); });
}
