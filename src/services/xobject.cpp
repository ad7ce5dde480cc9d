// Objects: the slow half of reference counting, deletion, and reflection through the class descriptor.
//
// A last release deletes inside one recursive lock. Deletions nest when an object holds the last reference
// on another; beyond a fixed depth they are put off until the frame at that depth has finished its own, so
// a chain of any length is released on a bounded stack.
//
// While it dies an object has the count 1: references that ondelete() or a destructor takes on it are
// ordinary ones and never the last.
#include <kelstdmt/xobject.h>

#include <algorithm>
#include <vector>

#include <kelstdmt/xexception.h>
#include <kelstdmt/xrtti.h>

#include "services/object_access.h"

using internals = kel_object_access;
using kel::detail::count_load;
using kel::detail::count_store;
using kel::detail::count_swap;

// Deletion -------------------------------------------------------------------------------------

namespace {

constexpr char source[] = "services/xobject";
constexpr int deepest = 200;

// Immortal: static objects are released after any other static object has died.
constinit thrMutex count_lock(thrMutex::Recursive);

// The deletions that this thread is in the middle of.
struct deletions {
    int depth;
    std::vector<xobject *> *postponed;  // set while the deepest frame is at work
};
__attribute__((tls_model("initial-exec"))) constinit thread_local deletions current{0, nullptr};
__attribute__((tls_model("initial-exec"))) constinit thread_local const kel::detail::construction *innermost =
    nullptr;

class level {
public:
    level() noexcept { ++current.depth; }
    ~level() { --current.depth; }
    level(const level &) = delete;
    level &operator=(const level &) = delete;
};

// Takes one from a count above 1, which others may change meanwhile.
bool drop_shared(int &count) noexcept {
    for (int seen = count_load(count); seen > 1;)
        if (count_swap(count, seen, seen - 1)) return true;
    return false;
}

void delete_now(xobject *object) {
    level nested;
    count_store(internals::count(object), 1);
    internals::ondelete(object);
    delete object;
}

// Deletes an object and then, in the order of their releases, what its deletion postponed.
void delete_with_postponed(xobject *object) {
    std::vector<xobject *> postponed;
    struct scope {
        explicit scope(std::vector<xobject *> &list) noexcept { current.postponed = &list; }
        ~scope() { current.postponed = nullptr; }
    } working(postponed);
    for (;;) {
        std::size_t before = postponed.size();
        delete_now(object);
        std::reverse(postponed.begin() + static_cast<std::ptrdiff_t>(before), postponed.end());
        do {
            if (postponed.empty()) return;
            object = postponed.back();
            postponed.pop_back();
        } while (drop_shared(internals::count(object)));
    }
}

bool postpone(xobject *object) noexcept {
    try {
        current.postponed->push_back(object);
    } catch (...) {
        return false;  // out of memory: the stack may still do
    }
    count_store(internals::count(object), 1);
    return true;
}

void delete_released(xobject *object) {
    if (current.postponed) {
        if (!postpone(object)) delete_now(object);
    } else if (current.depth < deepest) {
        delete_now(object);
    } else {
        delete_with_postponed(object);
    }
}

// The release of a reference that may be the last one; inside the lock.
void end_reference(xobject *object) {
    int &count = internals::count(object);
    if (drop_shared(count)) return;
    if (!kel::detail::construction::covers(object) && internals::isdeletable(object)) {
        delete_released(object);
        return;
    }
    for (int seen = count_load(count); !count_swap(count, seen, seen > 1 ? seen - 1 : 0);) {
    }
}

}  // namespace

void kel::detail::release_last(xobject *object) {
    thrLock lock(count_lock);
    end_reference(object);
}

void kel::detail::unirelease_last(xobject *object) {
    thrLock lock(count_lock);
    int count = count_load(internals::count(object));
    if (count > 0)
        end_reference(object);
    else if (count < -1)
        _Abort("xrcrelease: Invalid value of refcount.", source, __LINE__);
}

void kel::detail::uniattach_first(xobject *object) {
    thrLock lock(count_lock);
    int &count = internals::count(object);
    int seen = count_load(count);
    if (seen == 0 && count_swap(count, seen, object->isrefcountable() ? 1 : -1)) return;
    if (seen > 0)
        count_add(count, 1);
    else if (seen < -1)
        _Abort("xrcattach: Invalid value of refcount.", source, __LINE__);
}

void xdelete(xobject *object) {
    if (object == nullptr) return;
    if (!kel::is_object(object)) kelXNotInitialized::Throw();
    if (object->isrefcountable()) kelXRefCountable::Throw(object);
    thrLock lock(count_lock);
    if (internals::isdeletable(object)) delete_now(object);
}

// Construction ---------------------------------------------------------------------------------

namespace kel::detail {

construction::construction(void *begin, std::size_t size) noexcept
    : m_begin(static_cast<char *>(begin)), m_size(size), m_outer(innermost) {
    innermost = this;
}
construction::~construction() {
    innermost = m_outer;
}

bool construction::covers(const void *object) noexcept {
    auto address = reinterpret_cast<std::uintptr_t>(object);
    for (const construction *at = innermost; at; at = at->m_outer)
        if (address - reinterpret_cast<std::uintptr_t>(at->m_begin) < at->m_size) return true;
    return false;
}

}  // namespace kel::detail

// The object -----------------------------------------------------------------------------------

xobject::~xobject() = default;

void *xobject::dyndowncast(const xrtticlass *wanted) {
    if (wanted == get_xrttiobject()) return this;
    kel::detail::throw_mismatch(wanted, this);
}

xrtticlass *xobject::getclassrtti() {
    return get_xrttiobject();
}
xrtticlass *xobject::givertti() {
    return get_xrttiobject();
}
xbool xobject::isdeletable() {
    return true;
}
void xobject::ondelete() {}

bool xobject::isrefcountable() {
    if (int count = count_load(m_refcount)) return count > 0;
    if (xrtticlass *type = getrtti()) return type->getisrefcount();
    // Without a descriptor nothing says that it is counted, and the exception holds it.
    int seen = 0;
    count_swap(m_refcount, seen, -1);
    kel::detail::throw_unknown(this);
}

// Reflection -----------------------------------------------------------------------------------

namespace {

// Keeps a counted object that nobody holds yet at count 0 through one query: the reference of the value
// that stands for it would otherwise be its last.
class fresh_guard {
public:
    fresh_guard(xobject *self, xrtticlass *type) noexcept
        : m_self(count_load(internals::count(self)) == 0 && type->getisrefcount() ? self : nullptr) {
        xrcattach(m_self);
    }
    ~fresh_guard() {
        if (m_self) kel::detail::count_add(internals::count(m_self), -1);
    }
    fresh_guard(const fresh_guard &) = delete;
    fresh_guard &operator=(const fresh_guard &) = delete;

private:
    xobject *m_self;
};

}  // namespace

xrtticlass *xobject::requirertti() {
    xrtticlass *type = getrtti();
    if (type == nullptr) kel::detail::throw_unknown(this);
    return type;
}

bool xobject::issameas(xrtticlass *type) {
    return requirertti()->issameas(type);
}
bool xobject::iskindof(xrtticlass *type) {
    return requirertti()->iskindof(type);
}
xstring xobject::gettypename() {
    return requirertti()->gettypename();
}

bool xobject::isstruct() {
    return requirertti()->isstruct();
}
int xobject::getnfields() {
    return requirertti()->getnfields();
}
xstring xobject::getfieldname(int index) {
    return requirertti()->getfieldname(index);
}
xany xobject::getfield(int index) {
    xrtticlass *type = requirertti();
    fresh_guard guard(this, type);
    return type->field_of(index, this);
}
xany xobject::lookupfield(const char *name) {
    xrtticlass *type = requirertti();
    fresh_guard guard(this, type);
    return type->field_of(name, this);
}
bool xobject::hasfield(const char *name) {
    return requirertti()->hasfield(name);
}

bool xobject::isarray() {
    return requirertti()->isarray();
}
int xobject::getnarraydims() {
    return requirertti()->getnarraydims();
}
int xobject::getnarrayelems(int dimension) {
    return requirertti()->getnarrayelems(dimension);
}
xany xobject::getarrayelem(int *indices) {
    xrtticlass *type = requirertti();
    fresh_guard guard(this, type);
    return type->getarrayelem(indices, this);
}

bool xobject::issequence() {
    return requirertti()->issequence();
}
int xobject::getnseqelems() {
    xrtticlass *type = requirertti();
    fresh_guard guard(this, type);
    return type->getnseqelems(this);
}
xany xobject::getseqelem(int index) {
    xrtticlass *type = requirertti();
    fresh_guard guard(this, type);
    return type->getseqelem(index, this);
}
bool xobject::hasindex(int index) {
    xrtticlass *type = requirertti();
    fresh_guard guard(this, type);
    return type->hasindex(index, this);
}

bool xobject::isdictionary() {
    return requirertti()->isdictionary();
}
int xobject::getndictelems() {
    xrtticlass *type = requirertti();
    fresh_guard guard(this, type);
    return type->getndictelems(this);
}
bool xobject::getdictkey(int index, xstring &key) {
    xrtticlass *type = requirertti();
    fresh_guard guard(this, type);
    return type->getdictkey(index, this, key);
}
bool xobject::getdictelem(int index, xany &elem) {
    xrtticlass *type = requirertti();
    fresh_guard guard(this, type);
    return type->getdictelem(index, this, elem);
}
xany xobject::lookupdict(const char *key) {
    xrtticlass *type = requirertti();
    fresh_guard guard(this, type);
    return type->lookupdict(key, this);
}
bool xobject::haskey(const char *key) {
    xrtticlass *type = requirertti();
    fresh_guard guard(this, type);
    return type->haskey(key, this);
}
