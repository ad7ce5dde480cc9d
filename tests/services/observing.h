// What the tests of the core look at from outside: internal errors, thrown exceptions, the lives of objects.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include <kelstdmt/declare.h>

// Collects internal errors as "MESSAGE (SOURCE)" while it lives. One at a time.
class internal_errors {
public:
    internal_errors() : m_before(btkSetAbortHandler(&report)) { all.clear(); }
    ~internal_errors() { btkSetAbortHandler(m_before); }
    internal_errors(const internal_errors &) = delete;
    internal_errors &operator=(const internal_errors &) = delete;

    // Those since the last call, one behind the other.
    std::string take() { return std::exchange(all, ""); }

private:
    static inline std::string all;
    static void report(const char *message, const char *source, int line) {
        EXPECT_GT(line, 0);
        all += (all.empty() ? "" : "; ") + std::string(message ? message : "-") + " (" + source + ")";
    }

    btkAbortHandler m_before;
};

// The exception that a call throws, with the reference of its flight.
template <class Call>
xthrowable *flight_of(Call call) {
    try {
        call();
    } catch (xthrowable *flight) {
        return flight;
    }
    ADD_FAILURE() << "threw nothing";
    return nullptr;
}

// The same of a counted class. Anything else is a failure and gives null.
template <class X, class Call>
xrchandle<X> thrown_by(Call call) {
    auto held = xrchandle<xthrowable>::adopt(flight_of(call));
    if (!held) return {};
    EXPECT_EQ(xrcgetcount(held.get()), 1) << "references of the flight";
    EXPECT_TRUE(held->iskindof(X::getclassrtti())) << "threw " << held->gettypename().Str();
    return held->iskindof(X::getclassrtti()) ? xrchandle<X>::adopt(X::cast(held.detach())) : xrchandle<X>();
}

inline std::string text(const xstring &string) {
    return string.IsNull() ? "(null)" : string.Str();
}
