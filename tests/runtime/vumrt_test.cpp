// Locks, time values, internal errors, paths, and text in the locale's and the neutral form.
#include <climits>
#include <clocale>
#include <cmath>
#include <random>
#include <thread>
#include <vector>

#include <kelstdmt/vumtext.h>

#include "scratch_folder.h"

namespace {

namespace fs = std::filesystem;

TEST(Mutex, ExcludesAndCounts) {
    for (int type : {thrMutex::Plain, thrMutex::Recursive}) {
        thrMutex mutex(type);
        long count = 0;
        auto add = [&] {
            for (int i = 0; i < 20000; ++i) {
                thrLock lock(mutex);
                if (type == thrMutex::Recursive) {
                    thrLock again(mutex);
                    EXPECT_EQ(mutex.GetDepth(), 2U);
                }
                ++count;
                if (i % 1000 == 0) std::this_thread::yield();
            }
        };
        std::thread first(add), second(add);
        add();
        first.join();
        second.join();
        EXPECT_EQ(count, 60000);
        EXPECT_THROW(mutex.Unlock(), thrXIllegalAccess);
        mutex.Lock();
        std::thread([&] { EXPECT_THROW(mutex.Unlock(), thrXIllegalAccess); }).join();
        if (type == thrMutex::Plain) {
            EXPECT_THROW(mutex.Lock(), thrXIllegalAccess);
        }
        EXPECT_TRUE(mutex.IsOwner());
        mutex.Unlock();
        EXPECT_FALSE(mutex.IsOwner());
    }
}

TEST(Time, IsNormalForEveryReal) {
    const std::tuple<double, std::int64_t, std::int32_t> cases[] = {
        {1.25, 1, 250000},    {-0.25, -1, 750000},    {0.9999999, 1, 0},
        {std::nan(""), 0, 0}, {INFINITE, 1 << 30, 0}, {-HUGE_VAL, -(1 << 30), 0}};
    for (const auto &[seconds, whole, micros] : cases) {
        btkTimeval time;
        time.init(seconds);
        EXPECT_TRUE(time == btkTimeval(whole, micros)) << seconds << " gave " << time.ToSeconds();
    }
}

TEST(InternalErrors, AreToldAndReturn) {
    testing::internal::CaptureStderr();
    _Abort("gone", "services/xobject", 7);
    static std::string seen = testing::internal::GetCapturedStderr();
    auto before = btkSetAbortHandler([](const char *message, const char *source, int line) {
        seen += std::string(message ? message : "-") + "|" + source + "|" + std::to_string(line);
    });
    _Abort(nullptr, "s", 1);
    btkSetAbortHandler(before);
    EXPECT_EQ(seen, "kelstdmt: internal error: gone (services/xobject:7)\n-|s|1");
}

using Paths = Folder;
TEST_F(Paths, GoToTheHostAndBack) {
    fs::create_directories(at("elsewhere/sub"));
    fs::create_directories(at("drives/e"));
    fs::create_directory_symlink(at("elsewhere"), at("drives/D"));
    ::setenv("KELSTDMT_DRIVES", at("drives/").c_str(), 1);
    std::string x = at("drives/D/x"), y = at("drives/e/x/y"), root = "C:\\", ab = root + "a\\b";
    const std::string cases[][3] = {{ab, "/a/b", ab},     {"c:/a\\b", "/a/b", ab},  {"\\a\\b", "/a/b", ab},
                                    {"/a/b", "/a/b", ab}, {"a\\b", "a/b", "a\\b"},  {"C:a", "a", "a"},
                                    {"C:", ".", "."},     {root, "/", root},        {"d:\\x", x, "D:\\x"},
                                    {"", "", ""},         {"e:x\\y", y, "E:\\x\\y"}};
    for (auto &[caller, host, back] : cases) {
        EXPECT_EQ(btkHostPath(caller.c_str()), host) << caller;
        EXPECT_EQ(btkCallerPath(host.c_str()), back) << host;
    }
    EXPECT_EQ(btkCallerPath(at("elsewhere/sub").c_str()), "D:\\sub") << "through the link";
    EXPECT_EQ(btkHostPath(nullptr) + btkHostPath(xstrNullStr), "");
    for (const char *missing : {"F:\\x", "F:"}) {
        EXPECT_FALSE(fs::exists(btkHostPath(missing))) << missing;
        btkFileBuf file;
        EXPECT_FALSE(file.Open(missing, btkFileBuf::Out));
        EXPECT_EQ(Error_GetLast(), 3);
    }
    ::unsetenv("KELSTDMT_DRIVES");
    EXPECT_FALSE(fs::exists(btkHostPath("D:\\")));
}

using wide = std::basic_string<char16_t>;
const unsigned short *units(const wide &text) {
    return reinterpret_cast<const unsigned short *>(text.c_str());
}

// The buffers are exactly as large as promised, on the heap, so that the sanitizers see an overrun.
wide through_neutral(const wide &text) {
    std::vector<char> neutral(4 * text.size() + 1);
    std::size_t bytes = mbxWideToNeut(neutral.data(), units(text));
    std::vector<char> exact(neutral.begin(), neutral.begin() + static_cast<long>(bytes) + 1);
    std::vector<unsigned short> back(bytes + 1);
    std::size_t count = mbxNeutToWide(exact.data(), back.data());
    return wide(back.begin(), back.begin() + static_cast<long>(count));
}

TEST(NeutralText, KeepsEveryUnit) {
    wide all;
    for (unsigned unit = 1; unit < 0x10000; ++unit)
        all += static_cast<char16_t>(unit);
    EXPECT_TRUE(through_neutral(all) == all);
    std::mt19937 random(3);
    for (int round = 0; round < 5000; ++round) {
        wide text(random() % 12, u' ');
        for (auto &unit : text)
            unit = static_cast<char16_t>(random() % 2 ? 0xD7F0 + random() % 0x820 : 1 + random() % 300);
        ASSERT_TRUE(through_neutral(text) == text);
        std::string noise(random() % 9, ' ');
        for (char &c : noise)
            c = static_cast<char>(random() % 3 ? 0x80 + random() % 0x80 : 1 + random() % 127);
        std::vector<char> exact(noise.c_str(), noise.c_str() + noise.size() + 1);
        std::vector<unsigned short> seen(noise.size() + 1);
        ASSERT_LE(mbxNeutToWide(exact.data(), seen.data()), noise.size());
    }
    char bytes[16];
    EXPECT_EQ(mbxWideToNeut(bytes, units(u"a\u00e9\u20ac\U0001F600")), 10U);
    EXPECT_STREQ(bytes, "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80");
    unsigned short out[8];
    EXPECT_EQ(mbxNeutToWide("\xC0\x80x\xE2\x82", out), 5U);
    EXPECT_EQ(wide(out, out + 5), u"\uFFFD\uFFFDx\uFFFD\uFFFD");
}

TEST(LocaleText, ConvertsByTheLocale) {
    char bytes[16];
    unsigned short out[16];
    constexpr auto failed = static_cast<std::size_t>(-1);
    ASSERT_TRUE(std::setlocale(LC_CTYPE, "C.UTF-8"));
    const std::string text = "z\xC3\xA9\xF0\x9F\x98\x80";
    const wide units_of_it = u"z\u00e9\U0001F600";
    EXPECT_EQ(btkWideToNative(units(units_of_it), bytes, sizeof bytes), text.size());
    EXPECT_EQ(bytes, text);
    std::vector<char> tight(2);
    EXPECT_EQ(btkWideToNative(units(units_of_it), tight.data(), 2), 1U) << "whole characters only";
    EXPECT_EQ(btkNativeToWide(text.c_str(), out, 16), 4U);
    EXPECT_EQ(wide(out, out + 4), units_of_it);
    EXPECT_EQ(btkNativeToWide(text.c_str(), nullptr, 0), 4U);
    EXPECT_EQ(btkNativeToWide(text.c_str(), out, 3), 2U);
    EXPECT_EQ(btkWideToNative(units({u'a', 0xD800, u'b'}), bytes, 16), failed);
    for (const char *bad : {"a\xC3", "\xFF", "\xE2\x82z"})
        EXPECT_EQ(btkNativeToWide(bad, out, 16), failed) << bad;
    std::setlocale(LC_CTYPE, "C");
    EXPECT_TRUE(isLocaleSingle());
    EXPECT_EQ(btkWideToNative(units(u"\u20ac"), bytes, 16), failed);
    EXPECT_EQ(Strlen(xstrNullStr) + Strlen(static_cast<const char *>(nullptr)), 0U);
    EXPECT_EQ(Strlen(reinterpret_cast<const unsigned short *>(xstrNullStr)), 0U);
}

}  // namespace
