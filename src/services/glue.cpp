// Descriptors of declared types: built on first use, deleted when the process ends.
//
// One recursive lock covers every build, so types that refer to each other cannot wait for each other in
// two threads. The thread that builds finds a descriptor at once when it meets its type again; everybody
// else finds it only when the outermost build is complete, and with it all that the descriptor refers to.
// A build that fails takes back all that it began.
#include <kelstdmt/declare.h>

#include <memory>
#include <vector>

namespace kel::detail {
namespace {

// A descriptor and what it points at.
struct record {
    std::unique_ptr<brtti> descriptor;
    xrttistruct *parent = nullptr;
    std::optional<xrttistructs> parents;
    std::vector<xrttifield> fields;
    std::vector<xrttifield *> fieldlist;
    std::optional<xrttifields> list;
    std::vector<std::unique_ptr<char, void (*)(char *)>> names;
    std::vector<const char *> namelist;
    std::optional<xrttienumvalues> values;
    std::vector<int> sizes;
    record *next = nullptr;
};

// Immortal, and all of it inside the lock.
constinit thrMutex build_lock(thrMutex::Recursive);
constinit int depth = 0;
constinit glue *begun = nullptr;    // the types of the outermost build
constinit record *fresh = nullptr;  // their records
constinit record *complete = nullptr;

void delete_all(record *&list) {
    while (list)
        delete std::exchange(list, list->next);
}

// One build, or one that another needs.
class build {
public:
    build() : m_lock(build_lock) { ++depth; }
    ~build() {
        if (--depth > 0) return;
        while (begun) {
            glue *place = std::exchange(begun, begun->pending);
            if (m_done) place->ready.store(place->building, std::memory_order_release);
            place->building = nullptr;
        }
        if (!m_done) delete_all(fresh);
        while (fresh) {
            record *first = std::exchange(fresh, fresh->next);
            first->next = std::exchange(complete, first);
        }
    }
    build(const build &) = delete;
    build &operator=(const build &) = delete;

    // The descriptor if there is one, be it under construction.
    template <class Descriptor>
    Descriptor *find(glue &place) {
        brtti *known = place.ready.load(std::memory_order_acquire);
        if (known == nullptr) known = place.building;
        if (known) m_done = true;
        return static_cast<Descriptor *>(known);
    }

    // Makes it known before anything else is built.
    template <class Descriptor>
    Descriptor *begin(glue &place) {
        auto owner = std::make_unique<record>();
        auto *descriptor = new (pDefMemMgr) Descriptor;
        owner->descriptor.reset(descriptor);
        owner->next = fresh;
        fresh = m_record = owner.release();
        place.building = descriptor;
        place.pending = begun;
        begun = &place;
        return descriptor;
    }

    record &parts() { return *m_record; }
    void done() noexcept { m_done = true; }

private:
    thrLock m_lock;
    record *m_record = nullptr;
    bool m_done = false;
};

void add_fields(record &parts, const field_decl *rows, std::size_t count) {
    parts.fields.reserve(count);
    for (std::size_t i = 0; i < count; ++i) {
        parts.fields.emplace_back(rows[i].name, rows[i].optional, rows[i].type(), rows[i].get);
        parts.fieldlist.push_back(&parts.fields.back());
    }
}

xrttifields *list_of(record &parts, std::size_t first) {
    if (parts.fieldlist.size() <= first) return nullptr;
    return &parts.list.emplace(static_cast<int>(parts.fieldlist.size() - first),
                               parts.fieldlist.data() + first);
}

constexpr unsigned char byte(counting flag) {
    return static_cast<unsigned char>(flag);
}

// The clean-up runs behind the destructors of all static objects, which may still use descriptors. Other
// threads may do so even longer, so a process that has them leaves its descriptors to the system.
__attribute__((destructor(101))) void delete_descriptors() {
    if (__libc_single_threaded) delete_all(complete);
}

}  // namespace

xrttistruct *build_struct(glue &place, const char *name, counting flag, xrtticlass *(*parent)(),
                          const field_decl *rows, std::size_t count) {
    build work;
    if (auto *known = work.find<xrttistruct>(place)) return known;
    auto *descriptor = work.begin<xrttistruct>(place);
    record &parts = work.parts();
    parts.parent = parent ? dynamic_cast<xrttistruct *>(parent()) : nullptr;
    if (parts.parent) parts.parents.emplace(1, &parts.parent);
    add_fields(parts, rows, count);
    descriptor->initialize(name, byte(flag), parts.parents ? &*parts.parents : nullptr, list_of(parts, 0));
    work.done();
    return descriptor;
}

xrttienum *build_enum(glue &place, const char *name, const char *const *names, std::size_t count) {
    build work;
    if (auto *known = work.find<xrttienum>(place)) return known;
    auto *descriptor = work.begin<xrttienum>(place);
    record &parts = work.parts();
    parts.names.reserve(count);  // a copy has its owner at once
    parts.namelist.reserve(count);
    for (std::size_t i = 0; i < count; ++i) {
        parts.names.emplace_back(Strnew__(names[i]), [](char *text) { operator delete(text); });
        parts.namelist.push_back(parts.names.back().get());
    }
    parts.values.emplace(static_cast<int>(count), parts.namelist.data());
    descriptor->initialize(name, &*parts.values);
    work.done();
    return descriptor;
}

xrttiunion *build_union(glue &place, const char *name, counting flag, const field_decl *rows,
                        std::size_t count) {
    build work;
    if (auto *known = work.find<xrttiunion>(place)) return known;
    auto *descriptor = work.begin<xrttiunion>(place);
    record &parts = work.parts();
    add_fields(parts, rows, count);
    descriptor->initialize(name, byte(flag), count ? parts.fieldlist.front() : nullptr, list_of(parts, 1));
    work.done();
    return descriptor;
}

xrttiarray *build_array(glue &place, const char *name, counting flag, int ndims, const int *dims,
                        bool optional, xrtti *(*type)(), xrttiarray::getter get) {
    build work;
    if (auto *known = work.find<xrttiarray>(place)) return known;
    auto *descriptor = work.begin<xrttiarray>(place);
    record &parts = work.parts();
    parts.sizes.assign(dims, dims + ndims);
    descriptor->initialize(name, byte(flag), ndims, parts.sizes.data(), optional, type(), get);
    work.done();
    return descriptor;
}

xrttisequence *build_sequence(glue &place, const char *name, counting flag, bool optional, xrtti *(*type)(),
                              xrttisequence::sizer size, xrttisequence::getter get) {
    build work;
    if (auto *known = work.find<xrttisequence>(place)) return known;
    auto *descriptor = work.begin<xrttisequence>(place);
    descriptor->initialize(name, byte(flag), optional, type(), size, get);
    work.done();
    return descriptor;
}

xrttidictionary *build_dictionary(glue &place, const char *name, counting flag, bool optional,
                                  xrtti *(*type)(), xrttidictionary::sizer size, xrttidictionary::finder find,
                                  xrttidictionary::keygetter getkey, xrttidictionary::getter get) {
    build work;
    if (auto *known = work.find<xrttidictionary>(place)) return known;
    auto *descriptor = work.begin<xrttidictionary>(place);
    descriptor->initialize(name, byte(flag), optional, type(), size, find, getkey, get);
    work.done();
    return descriptor;
}

}  // namespace kel::detail
