// The error listeners. A round goes from address to address instead of along an iterator, so listeners may
// come and go meanwhile.
#include <functional>
#include <set>

#include <kelstdmt/xexception.h>

namespace {

using listeners = std::set<xerrlistener *, std::less<>>;

// Never deleted: static listeners remove themselves late.
listeners *registry = nullptr;

}  // namespace

xerrlistener::~xerrlistener() {
    xerrhandler::removelistener(this);
}

void xerrhandler::addlistener(xerrlistener *listener) {
    if (listener == nullptr) return;
    if (registry == nullptr) registry = new (pDefMemMgr) listeners;
    registry->insert(listener);
}

void xerrhandler::removelistener(xerrlistener *listener) {
    if (registry) registry->erase(listener);
}

xerhstatus xerrhandler::dispatch(const char *where, xrcunihandle<xthrowable> exception,
                                 xrcunihandle<xobject> object1, xrcunihandle<xobject> object2) {
    if (registry == nullptr) return xerhNotHandled;
    for (auto next = registry->begin(); next != registry->end();) {
        xerrlistener *listener = *next;
        xerhstatus status = listener->onerror(where, exception, object1, object2);
        if (status != xerhNotHandled) return status;
        next = registry->upper_bound(listener);
    }
    return xerhNotHandled;
}
