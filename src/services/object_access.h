// What the counting machinery sees of an object that nobody else does.
#pragma once

#include <kelstdmt/xexception.h>

struct kel_object_access {
    static int &count(xobject *object) noexcept { return object->m_refcount; }
    static bool isdeletable(xobject *object) { return object->isdeletable() != 0; }
    static void ondelete(xobject *object) { object->ondelete(); }
};

namespace kel::detail {

// Gives up the reference that an exception carries in flight, also of one that was thrown without xthrow and
// has none. One whose class is not counted was thrown to be deleted. What its end throws is of no interest.
void release_flight(xthrowable *flight) noexcept;

}  // namespace kel::detail
