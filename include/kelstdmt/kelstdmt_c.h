/* The C interface: every framework object, and the basic sequences and dictionaries, for C11 and for C++.
 *
 * Objects. An object is a pointer that C code never looks behind; null is the nil object and the pointer 22
 * the uninit object. A hold on a counted object keeps it alive: what a `_create` returns carries one that the
 * caller gives back with xrcrelease_c. Unless a comment says otherwise, a pointer passed in is only borrowed
 * for the call, and the function holds the object meanwhile.
 *
 * Texts. A text passed in is any C text; it is copied, never adopted, and null stands for the nil text. A
 * text that comes back is a counted buffer with one hold that the caller gives back with xstrunlock_c; others
 * may share it, so it is never written. The text pointers 1 (nil) and 2 (uninit) are no texts and need no
 * giving back; xstrunlock_c ignores them.
 *
 * Failures. No exception leaves a C function. It is put into the exception slot, of which the process has
 * one, and the function returns the uninit marker of its result's type (the bool byte 0x81 is not 0: compare
 * with 1 where that matters). Memory that ran out and other C++ exceptions arrive as kellib::XNativeException
 * with their text. A container function empties the slot when it begins; an object function leaves it alone
 * unless it fails.
 *
 * Threads. The slot is shared by all threads: none of them corrupts it, but one may empty it before another
 * has read it. A container, like the slot's answer, is for one thread at a time; holds may be taken from any.
 */
#pragma once

#include <assert.h>
#include <stddef.h>
#include <stdint.h>

#include <kelstdmt/export.h>

#ifdef __cplusplus
#include <kelstdmt/xobject.h>
#include <kelstdmt/xstring.h>

typedef xobject xdummy_c_struct;
#else
typedef struct xdummy_c_struct xdummy_c_struct; /* an object */
typedef struct brtti brtti;                     /* a descriptor of any type */
typedef struct xrtticlass xrtticlass;           /* a descriptor of a class; owned by the library, never freed */
#endif

/* Reserved values ----------------------------------------------------------------------------------- */

/* What was never set (UNINIT) and what is explicitly empty (NIL), for each type; exact to the bit. */
#define XINT_UNINIT_C (-2147483647)
#define XINT_NIL_C (-2147483647 - 1)
#define XBOOL_UNINIT_C ((unsigned char)0x81)
#define XBOOL_NIL_C ((unsigned char)0x80)
#define XREAL_UNINIT_C (0x1.545d516df5d06p+418) /* 9e125 */
#define XREAL_NIL_C (0x1.7a2ecc414a040p+418)
#define XTEXT_UNINIT_C ((char *)(uintptr_t)2)
#define XTEXT_NIL_C ((char *)(uintptr_t)1)
#define XOBJECT_UNINIT_C ((xdummy_c_struct *)(uintptr_t)22)
#define XOBJECT_NIL_C ((xdummy_c_struct *)(uintptr_t)0)

/* Whether the pointer leads to characters, or to an object: it is neither null nor a marker. */
#define XISTEXT_C(text) ((uintptr_t)(text) > 2)
#define XISOBJECT_C(object) ((uintptr_t)(object) > 22)

/* Values of any type -------------------------------------------------------------------------------- */

/* The kinds of a value. */
enum {
    XANY_UNINIT_C,
    XANY_NIL_C,
    XANY_INT_C,
    XANY_BOOL_C,
    XANY_REAL_C,
    XANY_STRING_C,
    XANY_ENUM_C,
    XANY_OBJECT_C,
    XANY_EXTERN_C
};

/* A value of any kind. 16 bytes where pointers have 4; elsewhere it widens with them. Who owns what the
 * payload points at is told where one is handed over (cadapt.h). */
typedef struct __xany_c {
    int kind;
    int reserved;
    union {
        int integer;
        unsigned char boolean;
        double real;
        const char *text; /* a counted buffer, or a marker */
        struct {
            int value;
            brtti *rtti;
        } enumeration;
        xdummy_c_struct *object;
        struct {
            void *value;
            brtti *rtti;
        } foreign;
    } payload;
} __xany_c;

static_assert(offsetof(__xany_c, payload) == 8, "the payload follows two ints");
static_assert(offsetof(__xany_c, payload.enumeration.rtti) == 8 + sizeof(void *), "the second half");
static_assert(offsetof(__xany_c, payload.foreign.rtti) == 8 + sizeof(void *), "the second half");
static_assert(sizeof(__xany_c) == 8 + 2 * sizeof(void *), "no padding");
static_assert(sizeof(void *) != 4 || sizeof(__xany_c) == 16, "the 32-bit record");

#ifdef __cplusplus
extern "C" {
#endif

/* Texts --------------------------------------------------------------------------------------------- */

#ifndef __cplusplus /* xstring.h declares them for C++ */
/* A new counted buffer with a copy of the text and one hold, the caller's; he may write to it while his hold
 * is the only one. Null and the markers come back unchanged. Without memory: the uninit text. */
KELSTDMT_API char *xstrcreate_c(const char *text);
/* One more hold on a counted buffer, for the caller to give back; returns the buffer. */
KELSTDMT_API char *xstrlock_c(const char *text);
/* Gives a hold back; the buffer goes with the last one. */
KELSTDMT_API void xstrunlock_c(const char *text);
#endif

/* Objects ------------------------------------------------------------------------------------------- */

/* One more hold on a counted object, for the caller to give back. An object that is not counted stays with
 * its owner; nothing happens for nil and uninit. */
KELSTDMT_API void xrcattach_c(xdummy_c_struct *object);
/* Gives a hold of the caller's back; a counted object goes with the last one. */
KELSTDMT_API void xrcrelease_c(xdummy_c_struct *object);
/* The end of an object that the caller owns: gives his hold on a counted object back, deletes any other. */
KELSTDMT_API void xdelete_c(xdummy_c_struct *object);

/* The declared name of the object's type, with a hold for the caller; the nil text for nil and uninit. */
KELSTDMT_API const char *xgettypename_c(xdummy_c_struct *object);
/* The object's class descriptor, which the library owns; null for nil and uninit, and on failure. */
KELSTDMT_API xrtticlass *xgetrtti_c(xdummy_c_struct *object);
/* Whether the object's type is the described one, or that or one derived from it: 1 or 0. Nil is of every
 * type, uninit of none. The descriptor is borrowed; null describes nothing. */
KELSTDMT_API unsigned char xisobjsameas_c(xdummy_c_struct *object, xrtticlass *descriptor);
KELSTDMT_API unsigned char xisobjkindof_c(xdummy_c_struct *object, xrtticlass *descriptor);

/* Prints the object on the framework's standard output, without a line end. That output keeps no bytes back,
 * but stdio does: flush stdout first where the order matters. For nil and uninit, "nil" and "uninit" go to
 * the C++ library's std::cout, which by default stands on stdout. */
KELSTDMT_API void xprint_c(xdummy_c_struct *object);
/* The same as a text, with a hold for the caller; nil and uninit give "nil" and "uninit". */
KELSTDMT_API const char *xprinttext_c(xdummy_c_struct *object);

/* The number of slots of a dictionary, of which some may be empty: the bound of a walk over
 * `_getkeybyindex`. 0 for nil and uninit; the uninit int, and the exception, for what is no dictionary. */
KELSTDMT_API int xgetndictelems_c(xdummy_c_struct *object);

/* The exception slot -------------------------------------------------------------------------------- */

/* Empties the slot and puts an exception into it. On a counted exception the slot takes a hold of its own;
 * one that is not counted passes into the slot's ownership. Null (and uninit) leave the slot empty. An object
 * that is no exception is refused: the slot then tells kellib::XTypeMismatch. */
KELSTDMT_API void xsetexc_c(xdummy_c_struct *exception);
/* The exception in the slot, or null. On a counted one there is a hold for the caller (xrcrelease_c); one
 * that is not counted stays the slot's, and is gone when that is emptied. */
KELSTDMT_API xdummy_c_struct *xgetexc_c(void);
/* 1 when the slot holds an exception, else 0. */
KELSTDMT_API unsigned char xisexc_c(void);
/* Takes the exception out of the slot, or null. It is the caller's with the slot's hold: end it with
 * xdelete_c, which suits counted and uncounted ones. */
KELSTDMT_API xdummy_c_struct *xextractexc_c(void);
/* Empties the slot. */
KELSTDMT_API void xcleanupexc_c(void);

/* The declared type name of the exception in the slot, such as "kellib::XNegativeIndex", and what it says of
 * itself (its description, or the text of a C++ exception); each with a hold for the caller. The nil text
 * when the slot is empty, or when it says nothing. */
KELSTDMT_API const char *xgetexctypename_c(void);
KELSTDMT_API const char *xgetexcdescription_c(void);

/* Sequences ------------------------------------------------------------------------------------------
 *
 * Null, uninit and an object of another class in the place of the sequence fail with kellib::XNotInitialized
 * and kellib::XTypeMismatch, a negative index or position with kellib::XNegativeIndex. What cannot be counted
 * in 32 bits of bytes, or has no memory, is a kellib::XNativeException, and the sequence is as before.
 */

/* A new empty sequence with one hold, the caller's. The uninit object when there is no memory. */
KELSTDMT_API xdummy_c_struct *xintsequence_create(void);
/* The number of elements; XINT_UNINIT_C on failure. */
KELSTDMT_API int xintsequence_getarraysize(xdummy_c_struct *sequence);
/* The element. At the count and beyond: kellib::XInvalidSeqIndex, and XINT_UNINIT_C comes back. */
KELSTDMT_API int xintsequence_get(xdummy_c_struct *sequence, int index);
/* Replaces the element. Beyond the end the sequence grows; elements on the way are 0 (texts: nil). */
KELSTDMT_API void xintsequence_set(xdummy_c_struct *sequence, int index, int value);
/* Inserts the value before the index. Beyond the end it grows as for `_set`. */
KELSTDMT_API void xintsequence_insert(xdummy_c_struct *sequence, int index, int value);
/* Inserts all elements of the other sequence of the same class, in order; it may be the same one, and is
 * borrowed like the first. */
KELSTDMT_API void xintsequence_insertseq(xdummy_c_struct *sequence, int index, xdummy_c_struct *other);
/* Removes the elements from the lower position up to, not including, the higher one; what lies beyond the
 * end is ignored. */
KELSTDMT_API void xintsequence_removerange(xdummy_c_struct *sequence, int a, int b);
/* The class descriptor, which the library owns. */
KELSTDMT_API xrtticlass *xintsequence_getclassrtti_c(void);

/* The same with bool bytes: 0, 1 or a marker. On failure `_get` returns XBOOL_UNINIT_C. */
KELSTDMT_API xdummy_c_struct *xboolsequence_create(void);
KELSTDMT_API int xboolsequence_getarraysize(xdummy_c_struct *sequence);
KELSTDMT_API unsigned char xboolsequence_get(xdummy_c_struct *sequence, int index);
KELSTDMT_API void xboolsequence_set(xdummy_c_struct *sequence, int index, unsigned char value);
KELSTDMT_API void xboolsequence_insert(xdummy_c_struct *sequence, int index, unsigned char value);
KELSTDMT_API void xboolsequence_insertseq(xdummy_c_struct *sequence, int index, xdummy_c_struct *other);
KELSTDMT_API void xboolsequence_removerange(xdummy_c_struct *sequence, int a, int b);
KELSTDMT_API xrtticlass *xboolsequence_getclassrtti_c(void);

/* The same with reals. On failure `_get` returns XREAL_UNINIT_C. */
KELSTDMT_API xdummy_c_struct *xrealsequence_create(void);
KELSTDMT_API int xrealsequence_getarraysize(xdummy_c_struct *sequence);
KELSTDMT_API double xrealsequence_get(xdummy_c_struct *sequence, int index);
KELSTDMT_API void xrealsequence_set(xdummy_c_struct *sequence, int index, double value);
KELSTDMT_API void xrealsequence_insert(xdummy_c_struct *sequence, int index, double value);
KELSTDMT_API void xrealsequence_insertseq(xdummy_c_struct *sequence, int index, xdummy_c_struct *other);
KELSTDMT_API void xrealsequence_removerange(xdummy_c_struct *sequence, int a, int b);
KELSTDMT_API xrtticlass *xrealsequence_getclassrtti_c(void);

/* The same with texts. `_set` and `_insert` copy the text (null and the markers make a nil element); `_get`
 * returns it with a hold for the caller, XTEXT_NIL_C for a nil element, and XTEXT_UNINIT_C on failure. */
KELSTDMT_API xdummy_c_struct *xstringsequence_create(void);
KELSTDMT_API int xstringsequence_getarraysize(xdummy_c_struct *sequence);
KELSTDMT_API const char *xstringsequence_get(xdummy_c_struct *sequence, int index);
KELSTDMT_API void xstringsequence_set(xdummy_c_struct *sequence, int index, const char *value);
KELSTDMT_API void xstringsequence_insert(xdummy_c_struct *sequence, int index, const char *value);
KELSTDMT_API void xstringsequence_insertseq(xdummy_c_struct *sequence, int index, xdummy_c_struct *other);
KELSTDMT_API void xstringsequence_removerange(xdummy_c_struct *sequence, int a, int b);
KELSTDMT_API xrtticlass *xstringsequence_getclassrtti_c(void);

/* Dictionaries ---------------------------------------------------------------------------------------
 *
 * Keys are texts, copied in. Entries also lie in numbered slots, of which some are empty, and a change of the
 * dictionary may move them; a walk asks slots 0 to xgetndictelems_c - 1 for their keys. Failures are those of
 * sequences, and an answer is then XBOOL_UNINIT_C; a slot number beyond the slots is
 * kellib::XInvalidDictIndex where a comment says so.
 *
 * A pointer for a result may be null: the answer comes alone. Otherwise it is always written, with the uninit
 * marker of its type where there is no value, so what comes back in a text pointer may always be given back.
 */

/* A new empty dictionary with one hold, the caller's. The uninit object when there is no memory. */
KELSTDMT_API xdummy_c_struct *xintdictionary_create(void);
/* 1, and the value copied out, when the key is there; else 0. A key that is no text is never there. */
KELSTDMT_API unsigned char xintdictionary_find(xdummy_c_struct *dictionary, const char *key, int *value);
/* 1, and the value copied out, when the slot holds an entry; else 0, also beyond the slots. */
KELSTDMT_API unsigned char xintdictionary_getbyindex(xdummy_c_struct *dictionary, int slot, int *value);
/* The same with the entry's key, which has a hold for the caller. */
KELSTDMT_API unsigned char xintdictionary_getkeybyindex(xdummy_c_struct *dictionary, int slot,
                                                        const char **key);
/* Adds the key or replaces its value. A key that is no text is an internal error and changes nothing. */
KELSTDMT_API void xintdictionary_set(xdummy_c_struct *dictionary, const char *key, int value);
/* Replaces the value in a slot; nothing for an empty one, kellib::XInvalidDictIndex beyond the slots. */
KELSTDMT_API void xintdictionary_setbyindex(xdummy_c_struct *dictionary, int slot, int value);
/* Removes the key if it is there. */
KELSTDMT_API void xintdictionary_remove(xdummy_c_struct *dictionary, const char *key);
/* Removes the entry in a slot; nothing for an empty one, kellib::XInvalidDictIndex beyond the slots. */
KELSTDMT_API void xintdictionary_removebyindex(xdummy_c_struct *dictionary, int slot);
/* The class descriptor, which the library owns. */
KELSTDMT_API xrtticlass *xintdictionary_getclassrtti_c(void);

/* The same with bool bytes. */
KELSTDMT_API xdummy_c_struct *xbooldictionary_create(void);
KELSTDMT_API unsigned char xbooldictionary_find(xdummy_c_struct *dictionary, const char *key,
                                                unsigned char *value);
KELSTDMT_API unsigned char xbooldictionary_getbyindex(xdummy_c_struct *dictionary, int slot,
                                                      unsigned char *value);
KELSTDMT_API unsigned char xbooldictionary_getkeybyindex(xdummy_c_struct *dictionary, int slot,
                                                         const char **key);
KELSTDMT_API void xbooldictionary_set(xdummy_c_struct *dictionary, const char *key, unsigned char value);
KELSTDMT_API void xbooldictionary_setbyindex(xdummy_c_struct *dictionary, int slot, unsigned char value);
KELSTDMT_API void xbooldictionary_remove(xdummy_c_struct *dictionary, const char *key);
KELSTDMT_API void xbooldictionary_removebyindex(xdummy_c_struct *dictionary, int slot);
KELSTDMT_API xrtticlass *xbooldictionary_getclassrtti_c(void);

/* The same with reals. */
KELSTDMT_API xdummy_c_struct *xrealdictionary_create(void);
KELSTDMT_API unsigned char xrealdictionary_find(xdummy_c_struct *dictionary, const char *key, double *value);
KELSTDMT_API unsigned char xrealdictionary_getbyindex(xdummy_c_struct *dictionary, int slot, double *value);
KELSTDMT_API unsigned char xrealdictionary_getkeybyindex(xdummy_c_struct *dictionary, int slot,
                                                         const char **key);
KELSTDMT_API void xrealdictionary_set(xdummy_c_struct *dictionary, const char *key, double value);
KELSTDMT_API void xrealdictionary_setbyindex(xdummy_c_struct *dictionary, int slot, double value);
KELSTDMT_API void xrealdictionary_remove(xdummy_c_struct *dictionary, const char *key);
KELSTDMT_API void xrealdictionary_removebyindex(xdummy_c_struct *dictionary, int slot);
KELSTDMT_API xrtticlass *xrealdictionary_getclassrtti_c(void);

/* The same with texts. `_set` and `_setbyindex` copy the text (null and the markers make a nil value); what
 * `_find` and `_getbyindex` give has a hold for the caller. */
KELSTDMT_API xdummy_c_struct *xstringdictionary_create(void);
KELSTDMT_API unsigned char xstringdictionary_find(xdummy_c_struct *dictionary, const char *key,
                                                  const char **value);
KELSTDMT_API unsigned char xstringdictionary_getbyindex(xdummy_c_struct *dictionary, int slot,
                                                        const char **value);
KELSTDMT_API unsigned char xstringdictionary_getkeybyindex(xdummy_c_struct *dictionary, int slot,
                                                           const char **key);
KELSTDMT_API void xstringdictionary_set(xdummy_c_struct *dictionary, const char *key, const char *value);
KELSTDMT_API void xstringdictionary_setbyindex(xdummy_c_struct *dictionary, int slot, const char *value);
KELSTDMT_API void xstringdictionary_remove(xdummy_c_struct *dictionary, const char *key);
KELSTDMT_API void xstringdictionary_removebyindex(xdummy_c_struct *dictionary, int slot);
KELSTDMT_API xrtticlass *xstringdictionary_getclassrtti_c(void);

#ifdef __cplusplus
}
#endif
