// A doubly linked list: first in, first out, or last in, first out.
#pragma once

#include <cstddef>
#include <iterator>
#include <utility>

#include <kelstdmt/dsiter.h>

template <class T>
struct Link2 {
    Link2 *next;
    Link2 *previous;
    T value;

    // Links itself between the two, each of which may be null.
    Link2(T held, Link2 *before, Link2 *behind) : next(behind), previous(before), value(std::move(held)) {
        if (before) before->next = this;
        if (behind) behind->previous = this;
    }
    Link2(const Link2 &) = delete;
    Link2 &operator=(const Link2 &) = delete;
};

template <class T>
class dsList2Iter;

template <class T>
class dsList2 {
public:
    // The order in which Pop takes.
    static constexpr int FirstInFirstOut = 0, LastInFirstOut = 1;

    explicit dsList2(int takeorder = FirstInFirstOut) noexcept : m_takeorder(takeorder) {}
    dsList2(dsList2 &&other) noexcept
        : m_head(std::exchange(other.m_head, nullptr)),
          m_tail(std::exchange(other.m_tail, nullptr)),
          m_takeorder(other.m_takeorder),
          m_count(std::exchange(other.m_count, 0)) {}
    dsList2 &operator=(dsList2 &&other) noexcept {
        dsList2 taken(std::move(other));
        std::swap(m_head, taken.m_head);
        std::swap(m_tail, taken.m_tail);
        std::swap(m_takeorder, taken.m_takeorder);
        std::swap(m_count, taken.m_count);
        return *this;
    }
    ~dsList2() { Clear(); }

    void SetTakeOrder(int takeorder) noexcept { m_takeorder = takeorder; }
    int GetTakeOrder() const noexcept { return m_takeorder; }

    void Push(T value) { PushTail(std::move(value)); }
    void PushHead(T value) {
        m_head = new Link2<T>(std::move(value), nullptr, m_head);
        if (!m_tail) m_tail = m_head;
        ++m_count;
    }
    void PushTail(T value) {
        m_tail = new Link2<T>(std::move(value), m_tail, nullptr);
        if (!m_head) m_head = m_tail;
        ++m_count;
    }
    // From the head with take order 0, else from the tail. An empty list reports an internal error and
    // answers a default value.
    T Pop() {
        Link2<T> *taken = m_takeorder == FirstInFirstOut ? m_head : m_tail;
        if (!taken) {
            _Abort("dsList2::Pop ()", "containers/dslist", __LINE__);
            return T();
        }
        T value = std::move(taken->value);
        Unlink(taken);
        return value;
    }
    // Removes a node of this list.
    void Unlink(Link2<T> *node) noexcept {
        (node->previous ? node->previous->next : m_head) = node->next;
        (node->next ? node->next->previous : m_tail) = node->previous;
        --m_count;
        delete node;
    }
    void Clear() noexcept {
        while (m_head)
            Unlink(m_head);
    }

    bool IsEmpty() const noexcept { return m_count == 0; }
    unsigned GetSize() const noexcept { return m_count; }
    Link2<T> *GetHead() const noexcept { return m_head; }
    Link2<T> *GetTail() const noexcept { return m_tail; }
    dsIter<T> GetIter() { return dsIter<T>(new dsList2Iter<T>(*this)); }

    class iterator {
    public:
        using value_type = T;
        using reference = T &;
        using pointer = T *;
        using difference_type = std::ptrdiff_t;
        using iterator_category = std::forward_iterator_tag;

        iterator() = default;
        explicit iterator(Link2<T> *node) noexcept : m_node(node) {}
        T &operator*() const noexcept { return m_node->value; }
        T *operator->() const noexcept { return &m_node->value; }
        iterator &operator++() noexcept {
            m_node = m_node->next;
            return *this;
        }
        iterator operator++(int) noexcept { return iterator(std::exchange(m_node, m_node->next)); }
        friend bool operator==(const iterator &, const iterator &) = default;

    private:
        Link2<T> *m_node = nullptr;
    };
    iterator begin() const noexcept { return iterator(m_head); }
    iterator end() const noexcept { return iterator(); }

private:
    Link2<T> *m_head = nullptr;
    Link2<T> *m_tail = nullptr;
    int m_takeorder;
    unsigned m_count = 0;
};

// From the head to the tail, and back. The node it stands at must not be removed.
template <class T>
class dsList2Iter final : public dsBaseIter<T> {
public:
    explicit dsList2Iter(const dsList2<T> &list) : m_list(&list), m_node(list.GetHead()) {}

    void SetAtFirst() override { m_node = m_list->GetHead(); }
    void SetAtLast() { m_node = m_list->GetTail(); }
    bool Finished() const override { return !m_node; }
    void MoveToNext() override {
        if (m_node) m_node = m_node->next;
    }
    // Before the head the walk is finished.
    void MoveToPrevious() {
        if (m_node) m_node = m_node->previous;
    }
    T &Current() const override {
        if (m_node) return m_node->value;
        _Abort("dsList2Iter::Current", "containers/dslist", __LINE__);
        return kel::detail::fallback_value<T>();
    }
    dsBaseIter<T> *Reproduce() const override { return new dsList2Iter(*m_list); }

private:
    const dsList2<T> *m_list;
    Link2<T> *m_node;
};
