// A descriptor of the system that is closed with its owner; closing leaves the last error and errno alone.
#pragma once

#include <utility>

namespace kel::system {

class owned_descriptor {
public:
    owned_descriptor() = default;
    explicit owned_descriptor(int fd) noexcept : m_fd(fd) {}
    ~owned_descriptor() { reset(); }
    owned_descriptor(owned_descriptor &&from) noexcept : m_fd(from.release()) {}
    owned_descriptor &operator=(owned_descriptor &&from) noexcept {
        if (this != &from) reset(from.release());
        return *this;
    }

    explicit operator bool() const noexcept { return m_fd >= 0; }
    int get() const noexcept { return m_fd; }  // -1 for none
    int release() noexcept { return std::exchange(m_fd, -1); }
    void reset(int fd = -1) noexcept;

private:
    int m_fd = -1;
};

}  // namespace kel::system
