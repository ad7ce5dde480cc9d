// Exceptions: the throw itself, the function record and the throwers that generated code calls.
#include <kelstdmt/xexception.h>

#include <ostream>

#include "services/object_access.h"

xthrowable::~xthrowable() = default;

void xthrow(xrcunihandle<xthrowable> exception) {
    xthrowable *flight = exception;
    if (!kel::is_object(flight)) kel::detail::throw_uninitialized();
    xrcuniattach(flight);
    throw flight;
}

kelXFunc::kelXFunc(const char *name)
    : m_name(kel::detail::stored(name)), m_args(kel::construct<kelXArgs>()) {}

void kelXExternFunc::Print(std::ostream &out) const {
    out << "Exception: \"" << getDescription() << "\"\n\tin function \"";
    if (kel::is_object(m_func.get())) out << m_func->getName();
    out << "\"\n";
}

void kelhThrowNoField(int fieldindex, xobject *object) {
    kelXNoField::Throw(fieldindex, object);
}
void kelhThrowInvalidSeqIndex(xobject *object, int index) {
    kelXInvalidSeqIndex::Throw(object, index);
}
void kelhThrowInvalidDictIndex(xobject *object, int index) {
    kelXInvalidDictIndex::Throw(object, index);
}
void kelhThrowInvalidArrayIndex(const char *type, int dimension, int index) {
    kelXInvalidArrayIndex::Throw(type, dimension, index);
}
void kelhThrowNegativeIndex(int index) {
    kelXNegativeIndex::Throw(index);
}
void kelhThrowNotInitialized() {
    kelXNotInitialized::Throw();
}
void kelhThrowRefCountable(xobject *object) {
    kelXRefCountable::Throw(object);
}

xrchandle<kelXNoField> kelCreateXNoField(xany fieldid, xany object) {
    return kelXNoField::Create(std::move(fieldid), std::move(object));
}
xrchandle<kelXNativeException> kelCreateNativeException(const char *stringrep) {
    return kelXNativeException::Create(stringrep);
}

namespace kel::detail {

void release_flight(xthrowable *flight) noexcept {
    if (!is_object(flight)) return;
    try {
        if (xrcgetcount(flight) == -1)
            xdelete(flight);
        else
            xrcrelease(flight);
    } catch (xthrowable *thrown) {
        release_flight(thrown);
    } catch (...) {
    }
}

void throw_unknown(xobject *object) {
    kelXUnknownType::Throw(object);
}
void throw_mismatch(const char *wanted, xobject *object) {
    kelXTypeMismatch::Throw(wanted, object);
}
void throw_mismatch(const xrtticlass *wanted, xobject *object) {
    throw_mismatch(wanted ? wanted->getname().Str() : xstrNullStr, object);
}
void throw_uninitialized() {
    kelXNotInitialized::Throw();
}

}  // namespace kel::detail
