// The C interface while memory runs out: each allocation of a call fails once, and then all from one on. No
// exception leaves the call, what it worked on is usable afterwards, and the slot tells.
#include <gtest/gtest.h>

#include <functional>
#include <string>

#include <kelstdmt/kelstdmt.h>

#include "failing_memory.h"

namespace {

using namespace failing_memory;

TEST(cadapt_exhaustion_test, EndsInTheSlot) {
    const char *const long_text = "a text that fits into no small buffer of anybody's";
    xobject *texts = xstringsequence_create(), *table = xstringdictionary_create();
    xstringsequence_set(texts, 0, long_text);
    for (int i = 0; i < 30; ++i)
        xstringdictionary_set(table, std::to_string(i).c_str(), long_text);
    const std::function<void()> calls[] = {
        [] { xrcrelease_c(xintsequence_create()); },
        [=] { xstringsequence_set(texts, 0, long_text); },
        [=] { xstringsequence_insert(texts, 1, long_text); },
        [=] { xstringsequence_insertseq(texts, 0, texts); },
        [=] { xstrunlock_c(xstringsequence_get(texts, 0)); },
        [=] { xstrunlock_c(xstringsequence_get(texts, -1)); },
        [=] { xstrunlock_c(xstringsequence_get(table, 0)); },
        [=] { xstringdictionary_set(table, "one more than 32 slots take", long_text); },
        [=] { xstringdictionary_remove(table, "one more than 32 slots take"); },
        [=] {
            const char *text = nullptr;
            xstringdictionary_find(table, "7", &text);
            xstrunlock_c(text);
        },
        [=] {
            const char *key = nullptr;
            for (int slot = 0; slot < 32; ++slot) {
                xstringdictionary_getkeybyindex(table, slot, &key);
                xstrunlock_c(key);
                if (xisexc_c()) return;
            }
        },
        [=] { xstrunlock_c(xgettypename_c(texts)); },
        [=] { xstrunlock_c(xprinttext_c(texts)); },
        [] { xsetexc_c(XOBJECT_NIL_C); },
        [=] { xsetexc_c(texts); },
        [=] { xstrunlock_c(xstrcreate_c(long_text)); },
    };
    int failures = 0;
    for (const bool all : {false, true}) {
        for (std::size_t which = 0; which < std::size(calls); ++which) {
            for (long before = 0;; ++before) {
                ASSERT_LT(before, 10000) << "call " << which;
                xcleanupexc_c();
                all_after = all;
                has_failed = false;
                allocations_left = before;
                calls[which]();
                allocations_left = -1;
                if (!has_failed) break;
                if (xisexc_c() == 0) continue;  // it found its way without
                ++failures;
                xrchandle<xobject> error = xrchandle<xobject>::adopt(xgetexc_c());
                if (error->issameas(kelXNativeException::getclassrtti())) {
                    EXPECT_STREQ(kelXNativeException::cast(error)->getStringRep(), "std::bad_alloc");
                }
            }
            xcleanupexc_c();
            EXPECT_EQ(xrcgetcount(texts), 1) << "call " << which;
            EXPECT_EQ(xrcgetcount(table), 1) << "call " << which;
        }
    }
    EXPECT_GT(failures, 30);
    xcleanupexc_c();
    xrcrelease_c(texts);
    xrcrelease_c(table);
}

}  // namespace
