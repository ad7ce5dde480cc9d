// Between the class interface and the C interface: values cross as plain records, objects as their pointers.
#pragma once

#include <kelstdmt/kelstdmt_c.h>
#include <kelstdmt/xany.h>

// The record of a value. A text gets one more hold, which the C side owns and gives back with xstrunlock_c.
// All else is borrowed from the value: an object has no hold, and an extern's descriptor stays the value's.
// A value of an unknown kind is an internal error and gives the uninit record.
KELSTDMT_API __xany_c xcadapt_cxx2c(const xany &value);

// The value of a record, which keeps all that it has: a text is copied, an object is held once more, and an
// extern's descriptor is cloned (kelXCannotCloneRTTI). Markers and a null text become uninit and nil. An
// unknown kind is an internal error and gives the uninit value.
KELSTDMT_API xany xcadapt_c2cxx(const __xany_c &record);

// Whether releases decide this object's life; never for nil and uninit. Throws kelXUnknownType without a
// descriptor.
KELSTDMT_API bool xisrcobj_c(xobject *object);
