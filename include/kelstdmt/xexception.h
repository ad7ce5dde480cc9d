// Framework exceptions: every failure reported to a caller is an object with a declared name, a
// description and fields, so that it prints and is inspected like any other value.
//
// An exception travels as a bare `xthrowable *` that carries exactly one counted reference (none for a
// class that is not counted: its count is -1). Whoever catches it owns that reference: release it with
// xrcrelease when isrefcountable() is true and delete it with xdelete otherwise, or let the owner
// kel::caught of kel.h do it from the first line of the handler. To pass an exception on, give it to
// xthrow again, which takes a reference of its own for the new flight.
#pragma once

#include <iosfwd>

#include <kelstdmt/export.h>
#include <kelstdmt/xany.h>
#include <kelstdmt/xglue.h>
#include <kelstdmt/xobject.h>
#include <kelstdmt/xstring.h>

// What is thrown. It has no descriptor of its own: an exception without one answers "object".
class KELSTDMT_API xthrowable : public xobject {
public:
    ~xthrowable() override;
};

// Attaches the exception once more, for the flight, and throws its pointer.
[[noreturn]] KELSTDMT_API void xthrow(xrcunihandle<xthrowable> exception);

KEL_DECLARE_STRUCT(kelXException)
class KELSTDMT_API kelXException : public xthrowable {
    KEL_CLASS(kelXException, xthrowable)
public:
    xstring getDescription() const { return m_Description; }

protected:
    explicit kelXException(const char *description) : m_Description(kel::detail::stored(description)) {}

private:
    xstring m_Description;
};

// The arguments of a function; generated code derives argument records from it.
KEL_DECLARE_STRUCT(kelXArgs)
class KELSTDMT_API kelXArgs : public xobject {
    KEL_CLASS(kelXArgs, xobject)
};

// A function in which an exception arose.
KEL_DECLARE_STRUCT(kelXFunc)
class KELSTDMT_API kelXFunc : public xobject {
    KEL_CLASS(kelXFunc, xobject)
public:
    explicit kelXFunc(const char *name);
    xstring getName() const { return m_name; }
    xrchandle<kelXArgs> getArgs() const { return m_args; }

private:
    xstring m_name;
    xrchandle<kelXArgs> m_args;
};

// The base of exceptions that name the failing operation. Takes a counted reference on it.
KEL_DECLARE_STRUCT(kelXExternFunc)
class KELSTDMT_API kelXExternFunc : public kelXException {
    KEL_CLASS(kelXExternFunc, kelXException)
public:
    kelXExternFunc(const char *description, kelXFunc *func) : kelXException(description), m_func(func) {}
    xrchandle<kelXFunc> getFunc() const { return m_func; }

    // Two lines: the description and the function's name.
    virtual void Print(std::ostream &out) const;

private:
    xrchandle<kelXFunc> m_func;
};

// The exceptions of the core ----------------------------------------------------------------------

KEL_DECLARE_STRUCT(kelXNoField)
class KELSTDMT_API kelXNoField : public kelXException {
    KEL_EXCEPTION(kelXNoField, kelXException, "Field with given ID (name or index) does not exists",
                  (xany, FieldId), (xany, Object))
};

KEL_DECLARE_STRUCT(kelXUnknownType)
class KELSTDMT_API kelXUnknownType : public kelXException {
    KEL_EXCEPTION(kelXUnknownType, kelXException, "Run-time information is not available.", (xany, Object))
};

KEL_DECLARE_STRUCT(kelXTypeMismatch)
class KELSTDMT_API kelXTypeMismatch : public kelXException {
    KEL_EXCEPTION(kelXTypeMismatch, kelXException, "Object type mismatch.", (xstring, TypeName),
                  (xany, Object))
};

KEL_DECLARE_STRUCT(kelXUninitDispMethod)
class KELSTDMT_API kelXUninitDispMethod : public kelXException {
    KEL_EXCEPTION(kelXUninitDispMethod, kelXException, "Uninitialized dispatched method.", (xany, Object),
                  (xstring, MethodName))
};

KEL_DECLARE_STRUCT(kelXNotClassType)
class KELSTDMT_API kelXNotClassType : public kelXException {
    KEL_EXCEPTION(kelXNotClassType, kelXException, "Not a class type", (xstring, TypeName))
};

KEL_DECLARE_STRUCT(kelXNotEnumType)
class KELSTDMT_API kelXNotEnumType : public kelXException {
    KEL_EXCEPTION(kelXNotEnumType, kelXException, "Not an enum type", (xstring, TypeName))
};

KEL_DECLARE_STRUCT(kelXInvalidEnumIndex)
class KELSTDMT_API kelXInvalidEnumIndex : public kelXException {
    KEL_EXCEPTION(kelXInvalidEnumIndex, kelXException, "Invalid enum index", (xstring, TypeName),
                  (int, Index))
};

KEL_DECLARE_STRUCT(kelXNotStructType)
class KELSTDMT_API kelXNotStructType : public kelXException {
    KEL_EXCEPTION(kelXNotStructType, kelXException, "Not a structure type", (xstring, TypeName))
};

KEL_DECLARE_STRUCT(kelXInvalidParentIndex)
class KELSTDMT_API kelXInvalidParentIndex : public kelXException {
    KEL_EXCEPTION(kelXInvalidParentIndex, kelXException, "Invalid parent type index", (xstring, TypeName),
                  (int, Index))
};

// Its descriptor lists TypeName alone, although the object keeps the index too.
KEL_DECLARE_STRUCT(kelXInvalidFieldIndex)
class KELSTDMT_API kelXInvalidFieldIndex : public kelXException {
    KEL_EXCEPTION(kelXInvalidFieldIndex, kelXException, "Invalid regular field index", (xstring, TypeName),
                  (int, Index))
};

KEL_DECLARE_STRUCT(kelXNotArrayType)
class KELSTDMT_API kelXNotArrayType : public kelXException {
    KEL_EXCEPTION(kelXNotArrayType, kelXException, "Not an array type", (xstring, TypeName))
};

KEL_DECLARE_STRUCT(kelXInvalidArrayDimIndex)
class KELSTDMT_API kelXInvalidArrayDimIndex : public kelXException {
    KEL_EXCEPTION(kelXInvalidArrayDimIndex, kelXException, "Array dimension index is out of range",
                  (xstring, TypeName), (int, Index))
};

KEL_DECLARE_STRUCT(kelXInvalidArrayIndex)
class KELSTDMT_API kelXInvalidArrayIndex : public kelXException {
    KEL_EXCEPTION(kelXInvalidArrayIndex, kelXException, "Array index is out of range", (xstring, TypeName),
                  (int, Dimension), (int, Index))
};

KEL_DECLARE_STRUCT(kelXNotSequenceType)
class KELSTDMT_API kelXNotSequenceType : public kelXException {
    KEL_EXCEPTION(kelXNotSequenceType, kelXException, "Not a sequence type", (xstring, TypeName))
};

KEL_DECLARE_STRUCT(kelXInvalidSeqIndex)
class KELSTDMT_API kelXInvalidSeqIndex : public kelXException {
    KEL_EXCEPTION(kelXInvalidSeqIndex, kelXException, "Sequence index is out of range", (xany, Object),
                  (int, Index))
};

KEL_DECLARE_STRUCT(kelXNotDictionaryType)
class KELSTDMT_API kelXNotDictionaryType : public kelXException {
    KEL_EXCEPTION(kelXNotDictionaryType, kelXException, "Not a dictionary type", (xstring, TypeName))
};

KEL_DECLARE_STRUCT(kelXInvalidDictIndex)
class KELSTDMT_API kelXInvalidDictIndex : public kelXException {
    KEL_EXCEPTION(kelXInvalidDictIndex, kelXException, "Dictionary index is out of range", (xany, Object),
                  (int, Index))
};

KEL_DECLARE_STRUCT(kelXNotUnionType)
class KELSTDMT_API kelXNotUnionType : public kelXException {
    KEL_EXCEPTION(kelXNotUnionType, kelXException, "Not a union type", (xstring, TypeName))
};

KEL_DECLARE_STRUCT(kelXInvalidUnionIndex)
class KELSTDMT_API kelXInvalidUnionIndex : public kelXException {
    KEL_EXCEPTION(kelXInvalidUnionIndex, kelXException, "Union case index is out of range",
                  (xstring, TypeName), (int, Index))
};

KEL_DECLARE_STRUCT(kelXInvalidUnionDiscr)
class KELSTDMT_API kelXInvalidUnionDiscr : public kelXException {
    KEL_EXCEPTION(kelXInvalidUnionDiscr, kelXException, "Union case index is out of range", (xany, Object),
                  (xany, Discr))
};

KEL_DECLARE_STRUCT(kelXCannotCloneRTTI)
class KELSTDMT_API kelXCannotCloneRTTI : public kelXException {
    KEL_EXCEPTION(kelXCannotCloneRTTI, kelXException, "Can not clone RTTI", (xstring, TypeName))
};

KEL_DECLARE_STRUCT(kelXNegativeIndex)
class KELSTDMT_API kelXNegativeIndex : public kelXException {
    KEL_EXCEPTION(kelXNegativeIndex, kelXException, "Negative index", (int, Index))
};

KEL_DECLARE_STRUCT(kelXNotInitialized)
class KELSTDMT_API kelXNotInitialized : public kelXException {
    KEL_EXCEPTION(kelXNotInitialized, kelXException, "Object is not initialized or has been destroyed")
};

KEL_DECLARE_STRUCT(kelXRefCountable)
class KELSTDMT_API kelXRefCountable : public kelXException {
    KEL_EXCEPTION(kelXRefCountable, kelXException, "Object is reference countable", (xany, Object))
};

KEL_DECLARE_STRUCT(kelXNativeException)
class KELSTDMT_API kelXNativeException : public kelXException {
    KEL_EXCEPTION(kelXNativeException, kelXException, "Native exception on remote client",
                  (xstring, StringRep))
};

KEL_DECLARE_STRUCT(kelXConnectionClosed)
class KELSTDMT_API kelXConnectionClosed : public kelXException {
    KEL_EXCEPTION(kelXConnectionClosed, kelXException,
                  "Attempt to communicate with client/server after connection has been closed")
};

// The exceptions of the transport layer; their objects are not counted ------------------------------

KEL_DECLARE_STRUCT(xportXCannotConnect)
class KELSTDMT_API xportXCannotConnect : public kelXException {
    KEL_UNCOUNTED_EXCEPTION(xportXCannotConnect, kelXException, "Cannot connect", (xstring, Host),
                            (int, Port))
};

KEL_DECLARE_STRUCT(xportXMsgStringTooLong)
class KELSTDMT_API xportXMsgStringTooLong : public kelXException {
    KEL_UNCOUNTED_EXCEPTION(xportXMsgStringTooLong, kelXException, "Message too long", (xstring, Msg))
};

KEL_DECLARE_STRUCT(xportXFlushFailed)
class KELSTDMT_API xportXFlushFailed : public kelXException {
    KEL_UNCOUNTED_EXCEPTION(xportXFlushFailed, kelXException, "Flush on socket failed")
};

KEL_DECLARE_STRUCT(xportXNullInNonOptArg)
class KELSTDMT_API xportXNullInNonOptArg : public kelXException {
    KEL_UNCOUNTED_EXCEPTION(xportXNullInNonOptArg, kelXException,
                            "Null passed to non optional parameter argument", (xstring, ParamName))
};

KEL_DECLARE_STRUCT(xportXTimeout)
class KELSTDMT_API xportXTimeout : public virtual kelXException {
    KEL_UNCOUNTED_EXCEPTION(xportXTimeout, kelXException, "communication timeout", (xstring, OpName))
};

// Throwers for generated code -----------------------------------------------------------------------

[[noreturn]] KELSTDMT_API void kelhThrowNoField(int fieldindex, xobject *object);
[[noreturn]] KELSTDMT_API void kelhThrowInvalidSeqIndex(xobject *object, int index);
[[noreturn]] KELSTDMT_API void kelhThrowInvalidDictIndex(xobject *object, int index);
[[noreturn]] KELSTDMT_API void kelhThrowInvalidArrayIndex(const char *type, int dimension, int index);
[[noreturn]] KELSTDMT_API void kelhThrowNegativeIndex(int index);
[[noreturn]] KELSTDMT_API void kelhThrowNotInitialized();
[[noreturn]] KELSTDMT_API void kelhThrowRefCountable(xobject *object);
KELSTDMT_API xrchandle<kelXNoField> kelCreateXNoField(xany fieldid, xany object);
KELSTDMT_API xrchandle<kelXNativeException> kelCreateNativeException(const char *stringrep);

// Error listeners -----------------------------------------------------------------------------------

// What a listener answers: 0, not handled, ask the next one; anything else ends the round.
enum xerhstatus : int { xerhNotHandled = 0, xerhHandled = 1, xerhAbandon = 2 };

// Somebody who wants to hear of errors before they are dealt with. Its destructor removes it.
class KELSTDMT_API xerrlistener {
public:
    virtual xerhstatus onerror(const char *where, xrcunihandle<xthrowable> exception,
                               xrcunihandle<xobject> object1, xrcunihandle<xobject> object2) = 0;
    virtual ~xerrlistener();
};

// The registry of listeners, one a process. It takes no lock: register before starting threads.
class KELSTDMT_API xerrhandler {
public:
    static void addlistener(xerrlistener *listener);  // one that is there already stays as it is
    static void removelistener(xerrlistener *listener);
    // Asks the listeners in ascending order of their addresses until one answers other than 0. A
    // listener may add or remove listeners meanwhile.
    static xerhstatus dispatch(const char *where, xrcunihandle<xthrowable> exception,
                               xrcunihandle<xobject> object1, xrcunihandle<xobject> object2);
};
