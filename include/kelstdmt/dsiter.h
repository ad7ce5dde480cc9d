// Walks over the container templates.
//
//     for (dsIter<int> at = set.GetIter(); !at.Finished(); at.MoveToNext()) use(at.Current());
//
// A walk looks at its container at every step. Changing the container on the way is safe, but elements may
// then be passed over or seen twice. The container must outlive the walk.
#pragma once

#include <memory>

#include <kelstdmt/vumrt.h>

namespace kel::detail {

// What a failed access answers a reference to: a default value, fresh at every failure of the thread.
template <class T>
T &fallback_value() {
    thread_local T value{};
    value = T{};
    return value;
}

}  // namespace kel::detail

template <class T>
class dsBaseIter {
public:
    virtual ~dsBaseIter() = default;

    virtual void SetAtFirst() = 0;
    virtual bool Finished() const = 0;
    // Stays where it is once finished.
    virtual void MoveToNext() = 0;
    // A finished walk reports an internal error and answers a default value.
    virtual T &Current() const = 0;
    // A fresh walk of the same kind over the same container, at the first element; the caller's to delete.
    virtual dsBaseIter *Reproduce() const = 0;

protected:
    dsBaseIter() = default;
    dsBaseIter(const dsBaseIter &) = default;
    dsBaseIter &operator=(const dsBaseIter &) = default;
};

// Owns a walk, or none, which is finished from the start.
template <class T>
class dsIter final : public dsBaseIter<T> {
public:
    dsIter() = default;
    dsIter(dsBaseIter<T> *owned) : m_iter(owned) {}
    dsIter(dsIter &&) noexcept = default;
    dsIter &operator=(dsIter &&) noexcept = default;

    void SetAtFirst() override {
        if (m_iter) m_iter->SetAtFirst();
    }
    bool Finished() const override { return !m_iter || m_iter->Finished(); }
    void MoveToNext() override {
        if (m_iter) m_iter->MoveToNext();
    }
    T &Current() const override {
        if (m_iter) return m_iter->Current();
        _Abort("dsIter::Current", "containers/dsiter", __LINE__);
        return kel::detail::fallback_value<T>();
    }
    // Not supported: reported, and null.
    dsBaseIter<T> *Reproduce() const override {
        _Abort("dsIter::Reproduce", "containers/dsiter", __LINE__);
        return nullptr;
    }

private:
    std::unique_ptr<dsBaseIter<T>> m_iter;
};

template <class T>
class dsXArray;

// By index.
template <class T>
class dsArrayIter final : public dsBaseIter<T> {
public:
    explicit dsArrayIter(const dsXArray<T> &array) : m_array(&array) {}

    void SetAtFirst() override { m_index = 0; }
    bool Finished() const override { return m_index >= m_array->GetSize(); }
    void MoveToNext() override {
        if (!Finished()) ++m_index;
    }
    T &Current() const override {
        if (!Finished()) return m_array->GetDataPtr()[m_index];
        _Abort("dsArrayIter::Current", "containers/dsiter", __LINE__);
        return kel::detail::fallback_value<T>();
    }
    dsBaseIter<T> *Reproduce() const override { return new dsArrayIter(*m_array); }

private:
    const dsXArray<T> *m_array;
    unsigned m_index = 0;
};
