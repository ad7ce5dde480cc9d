// An element for the tests of containers: a number that knows where its objects live and holds memory of its
// own. Using one that does not live is a failure, and so is a second construction in one place; the
// sanitizers see what is never destroyed. It throws when it is told to.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <unordered_set>

// Without moves, it is copied where others are moved.
template <bool moves>
class Living {
public:
    static inline std::unordered_set<const Living *> all;
    static inline int until_throw = -1;  // default constructions and assignments before one throws
    static inline long copies = 0;

    Living() : Living((may_throw(), 0)) {}
    Living(int number) : m_number(std::make_unique<int>(number)) { born(); }
    Living(const Living &other) : Living(int{other}) { ++copies; }
    Living(Living &&other) noexcept requires moves : m_number(std::move(other.m_number)) { born(); }
    Living &operator=(const Living &other) {
        EXPECT_TRUE(lives());
        may_throw();
        m_number = std::make_unique<int>(int{other});
        ++copies;
        return *this;
    }
    Living &operator=(Living &&other) noexcept requires moves {
        EXPECT_TRUE(lives() && other.lives());
        std::swap(m_number, other.m_number);
        return *this;
    }
    ~Living() { EXPECT_EQ(all.erase(this), 1U) << "destroyed twice, or never made"; }

    operator int() const {
        EXPECT_TRUE(lives());
        return m_number ? *m_number : -1;
    }

private:
    bool lives() const { return all.contains(this); }
    void born() { EXPECT_TRUE(all.insert(this).second) << "made twice in one place"; }
    static void may_throw() {
        if (until_throw >= 0 && until_throw-- == 0) throw std::runtime_error("told to");
    }

    std::unique_ptr<int> m_number;
};
