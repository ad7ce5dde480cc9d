// Values to and from their C records.
#include <kelstdmt/cadapt.h>

namespace {

constexpr char source[] = "services/cadapt";

// A value deletes the descriptor that it is given, and its copy has a clone. The record keeps its own, so the
// value that the copy comes from is never destroyed.
xany copy_of_extern(void *value, brtti *descriptor) {
    if (!kel::is_object(value)) return {value, nullptr};
    union lent {
        lent(void *at, brtti *type) : whole(at, type) {}
        ~lent() {}
        xany whole;
    } record(value, descriptor);
    return record.whole;
}

}  // namespace

__xany_c xcadapt_cxx2c(const xany &value) {
    __xany_c record{};
    auto &payload = record.payload;
    switch (value.getkind()) {
        case xany::Uninit:
        case xany::Nil:
            break;
        case xany::Int:
            payload.integer = value;
            break;
        case xany::Bool:
            payload.boolean = value.getbool();
            break;
        case xany::Real:
            payload.real = value.getreal();
            break;
        case xany::String:
            payload.text = xstrlock_c(static_cast<xrstring>(value));
            break;
        case xany::Enum:
            payload.enumeration = {value, value.getrtti()};
            break;
        case xany::Object:
            payload.object = value;
            break;
        case xany::Extern: {
            const xextern foreign = value;
            payload.foreign = {foreign.value, foreign.rtti};
            break;
        }
        default:
            _Abort("Should not be here: xany of unknown kind.", source, __LINE__);
            return record;
    }
    record.kind = static_cast<int>(value.getkind());
    return record;
}

xany xcadapt_c2cxx(const __xany_c &record) {
    const auto &payload = record.payload;
    switch (record.kind) {
        case XANY_UNINIT_C:
            return {};
        case XANY_NIL_C:
            return nullptr;
        case XANY_INT_C:
            return payload.integer;
        case XANY_BOOL_C:
            return payload.boolean;
        case XANY_REAL_C:
            return payload.real;
        case XANY_STRING_C:
            return payload.text;
        case XANY_ENUM_C:
            return {payload.enumeration.value, payload.enumeration.rtti};
        case XANY_OBJECT_C:
            return payload.object;
        case XANY_EXTERN_C:
            return copy_of_extern(payload.foreign.value, payload.foreign.rtti);
        default:
            _Abort("Should not be here: xany_c of unknown kind.", source, __LINE__);
            return {};
    }
}

bool xisrcobj_c(xobject *object) {
    return kel::is_object(object) && object->isrefcountable();
}
