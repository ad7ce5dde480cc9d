// The exception slot, and the way of every exception into it.
//
// The slot takes no lock, and threads may use it at the same time: whoever takes the exception out, if only
// to look at it, is alone with it until he puts it back.
#include "services/cadapt_slot.h"

#include <cxxabi.h>

#include <exception>

#include <kelstdmt/kel.h>

#include "services/object_access.h"

namespace kel::detail {

constinit std::atomic<xthrowable *> exception_slot{nullptr};

namespace {

// Made when the library is loaded, for the time when there is no memory to make one. It is never given up.
kelXNativeException *const spare = [] {
    try {
        return kelXNativeException::Create("std::bad_alloc").detach();
    } catch (...) {
        return static_cast<kelXNativeException *>(nullptr);
    }
}();

bool is_counted(xthrowable *exception) noexcept {
    return xrcgetcount(exception) > 0;
}

// A reference on an exception. One without a descriptor is not counted: nothing says that it is.
void attach(xthrowable *exception) noexcept {
    try {
        xrcuniattach(exception);
    } catch (xthrowable *untyped) {
        const caught of_no_class(untyped);
    } catch (...) {
    }
}

// Puts an exception with its reference into the slot. What is there goes first: its end may run code that
// uses the slot too, and must not reach the new one.
void keep(xthrowable *exception) noexcept {
    // Thrown without xthrow: nobody has asked yet whether it is counted.
    if (xrcgetcount(exception) == 0) attach(exception);
    release_flight(exception_slot.exchange(nullptr));
    release_flight(exception_slot.exchange(exception));
}

void keep_native(const char *text) noexcept {
    kelXNativeException *made = spare;
    try {
        made = kelXNativeException::Create(text).detach();
    } catch (...) {
        xrcattach(made);
    }
    if (made)
        keep(made);
    else
        _Abort("No memory for an exception.", "services/cadapt_slot", __LINE__);
}

// The exception in the slot, kept alive for a look at it.
class slot_reader {
public:
    slot_reader() : m_error(static_cast<xthrowable *>(xgetexc_c())) {}
    ~slot_reader() {
        xthrowable *seen = m_error.detach();
        if (is_counted(seen)) release_flight(seen);  // no other was given a hold
    }
    slot_reader(const slot_reader &) = delete;
    slot_reader &operator=(const slot_reader &) = delete;

    const caught &operator*() const noexcept { return m_error; }

private:
    caught m_error;
};

}  // namespace

// The end of a thread passes. It is no object: the reference to it is null, and sanitizers are not to mind.
__attribute__((no_sanitize("null"))) void park_exception() {
    try {
        throw;
    } catch (abi::__forced_unwind &) {
        throw;
    } catch (xthrowable *thrown) {
        if (is_object(thrown))
            keep(thrown);
        else
            keep_native("An exception without an object.");
    } catch (const std::exception &native) {
        keep_native(native.what());
    } catch (const thrXIllegalAccess &native) {
        keep_native(native.what());
    } catch (...) {
        keep_native("An exception of an unknown type.");
    }
}

}  // namespace kel::detail

using namespace kel::detail;

void xsetexc_c(xobject *exception) {
    parking([exception] {
        xthrowable *fresh = nullptr;
        if (kel::is_object(exception)) {
            fresh = dynamic_cast<xthrowable *>(exception);
            if (fresh == nullptr) throw_mismatch("xthrowable", exception);
            attach(fresh);
        }
        xthrowable *before = exception_slot.exchange(nullptr);
        // What is there already and is not counted stays what it is.
        if (before != fresh || is_counted(before)) release_flight(before);
        if (fresh) keep(fresh);
    });
}

xobject *xgetexc_c() {
    return parking(static_cast<xobject *>(nullptr), []() -> xobject * {
        xthrowable *seen = exception_slot.exchange(nullptr);
        if (seen == nullptr) return nullptr;
        if (is_counted(seen)) xrcattach(seen);
        xthrowable *none = nullptr;
        if (!exception_slot.compare_exchange_strong(none, seen)) release_flight(seen);
        return seen;
    });
}

unsigned char xisexc_c() {
    return exception_slot.load() != nullptr;
}

xobject *xextractexc_c() {
    return exception_slot.exchange(nullptr);
}

void xcleanupexc_c() {
    release_flight(exception_slot.exchange(nullptr));
}

const char *xgetexctypename_c() {
    return parking(kel::uninit_text(), [] {
        const slot_reader slot;
        return handed_out((*slot).type_name());
    });
}

const char *xgetexcdescription_c() {
    return parking(kel::uninit_text(), [] {
        const slot_reader slot;
        // The description of every native exception is the same.
        if (auto *native = (*slot).as<kelXNativeException>()) return handed_out(native->getStringRep());
        return handed_out((*slot).description());
    });
}

// Holds --------------------------------------------------------------------------------------------

namespace kel::detail {

call_hold::call_hold(xobject *object) : m_object(object) {
    if (is_object(object) && xrcgetcount(object) == 0) {
        xrtticlass *type = object->getrtti();
        m_fresh = type && type->getisrefcount();
    }
    if (m_fresh)
        xrcattach(object);
    else
        xrcuniattach(object);
}

call_hold::~call_hold() {
    if (m_fresh)
        count_add(kel_object_access::count(m_object), -1);
    else  // may be the last one by now, and what the end throws must not leave a destructor
        parking([this] { xrcunirelease(m_object); });
}

}  // namespace kel::detail
