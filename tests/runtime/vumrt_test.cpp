// Locks, paths, and text in its neutral form.
#include <random>
#include <sstream>
#include <thread>

#include <kelstdmt/vumrt_stream.h>
#include <kelstdmt/vumtext.h>

#include "scratch_folder.h"

namespace {

namespace fs = std::filesystem;

TEST(Mutex, ExcludesAndKnowsItsOwner) {
    thrMutex plain(thrMutex::Plain), recursive(thrMutex::Recursive);
    long count = 0;
    auto add = [&] {
        for (int i = 0; i < 20000; ++i) {
            thrLock lock(plain), other(recursive), again(recursive);
            if (++count % 1000 == 0) std::this_thread::yield();
        }
    };
    std::thread first(add);
    add();
    first.join();
    EXPECT_EQ(count, 40000);
    plain.Lock();
    std::thread([&] { EXPECT_THROW(plain.Unlock(), thrXIllegalAccess); }).join();
    EXPECT_THROW(plain.Lock(), thrXIllegalAccess);
    plain.Unlock();
    EXPECT_FALSE(plain.IsOwner() || recursive.IsOwner());
}

using Paths = Folder;
TEST_F(Paths, GoToTheHostAndBack) {
    fs::create_directories(at("elsewhere/sub"));
    fs::create_directories(at("drives/e"));
    fs::create_directory_symlink(at("elsewhere"), at("drives/D"));
    ::setenv("KELSTDMT_DRIVES", at("drives/").c_str(), 1);
    std::string x = at("drives/D/x"), y = at("drives/e/x/y"), root = "C:\\", ab = root + "a\\b";
    const std::string cases[][3] = {
        {"c:/a\\b", "/a/b", ab}, {"\\a\\b", "/a/b", ab}, {"a\\b", "a/b", "a\\b"},
        {"C:a", "a", "a"},       {"C:", ".", "."},       {root, "/", root},
        {"d:\\x", x, "D:\\x"},   {"", "", ""},           {"e:x\\y", y, "E:\\x\\y"}};
    for (auto &[caller, host, back] : cases) {
        EXPECT_EQ(btkHostPath(caller.c_str()), host) << caller;
        EXPECT_EQ(btkCallerPath(host.c_str()), back) << host;
    }
    EXPECT_EQ(btkCallerPath(at("elsewhere/sub").c_str()), "D:\\sub") << "through the link";
    EXPECT_FALSE(btkFileBuf().Open("F:\\x", btkFileBuf::Out));
    ::unsetenv("KELSTDMT_DRIVES");
    EXPECT_FALSE(fs::exists(btkHostPath("D:\\")));
}

// A view of foreign bytes, beside a standard buffer over a copy of them.
TEST(Views, ReadAndSeekAsAStandardBuffer) {
    const std::string bytes = "one two three";
    std::mt19937 random(4);
    xtrystreambuf view(bytes.data(), bytes.size());
    std::stringbuf model(bytes, std::ios::in);
    const std::ios_base::seekdir origins[] = {std::ios::beg, std::ios::cur, std::ios::end};
    for (int step = 0; step < 2000; ++step) {
        const auto origin = origins[random() % 3];
        const auto offset = static_cast<std::streamoff>(random() % 40) - 20;
        const auto way = random() % 8 ? std::ios::in : std::ios::out;
        ASSERT_EQ(view.pubseekoff(offset, origin, way), model.pubseekoff(offset, origin, way)) << step;
        char got[8] = "", expected[8] = "";
        const auto count = static_cast<std::streamsize>(random() % 8);
        ASSERT_EQ(view.sgetn(got, count), model.sgetn(expected, count));
        ASSERT_STREQ(got, expected);
        ASSERT_EQ(view.sungetc(), model.sungetc());
        ASSERT_EQ(view.sputbackc('!'), -1) << "foreign bytes are written";
    }
    std::string first, second;
    btkStrstream words("one two"), part("one two", 5), none(kel::nil_text());
    EXPECT_TRUE(words >> first >> second && first == "one" && second == "two");
    EXPECT_TRUE(part >> first >> second && second == "t" && part.eof());
    EXPECT_FALSE(none >> first);
}

// What a buffer of one's own leaves out.
TEST(Views, OfABufferWithNothingOfItsOwn) {
    struct : xstreambuf {
    } plain;
    EXPECT_FALSE(plain.GetInputEvent() || plain.GetOutputEvent() || plain.GetTryIBuf() || plain.GetTryOBuf());
    plain.FreeTryIBuf();
    plain.FreeTryOBuf();
    EXPECT_TRUE(plain.GetBufSize() == 0 && plain.SetBufSize(8) == 0);
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

TEST(NeutralText, KeepsWhatItIsGiven) {
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
}

}  // namespace
