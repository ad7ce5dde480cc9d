// What the counting machinery sees of an object that nobody else does.
#pragma once

#include <kelstdmt/xobject.h>

struct kel_object_access {
    static int &count(xobject *object) noexcept { return object->m_refcount; }
    static bool isdeletable(xobject *object) { return object->isdeletable() != 0; }
    static void ondelete(xobject *object) { object->ondelete(); }
};
