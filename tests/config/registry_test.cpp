// The registry: its files byte by byte, its rules, and what other writers, kills, refusals and hostile
// entries do to it (KELSTDMT_KILLS: how many writers are killed).
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <climits>
#include <clocale>
#include <cmath>
#include <csignal>
#include <memory>
#include <random>
#include <thread>

#include <kelstdmt/kel.h>
#include <kelstdmt/reglib.h>

#include "scratch_folder.h"

namespace {

namespace fs = std::filesystem;
using Key = std::unique_ptr<regKey>;
using Names = std::vector<std::string>;

// Relative to the folder, sorted; only entries with such a beginning.
Names entries(const fs::path &folder, std::string_view beginning = "") {
    Names found;
    for (const auto &entry : fs::recursive_directory_iterator(folder))
        if (entry.path().filename().string().starts_with(beginning))
            found.push_back(entry.path().lexically_relative(folder));
    std::sort(found.begin(), found.end());
    return found;
}
std::string read(const ovkRegistryKey &key, const char *name) {
    const xstring value = key.GetValue(name);
    return value.IsNull() ? "none" : std::string(kel::view(value));
}
// A text that tells whether it is whole.
std::string told_text(std::size_t size) {
    return std::to_string(size) + ":" + std::string(size, static_cast<char>('a' + size % 26));
}
bool is_whole(const std::string &text) {
    return text == told_text(std::strtoul(text.c_str(), nullptr, 10));
}
// The declared name of what the action throws, and the name that it refuses.
template <class Action>
std::string thrown(Action action) {
    try {
        action();
    } catch (xthrowable *exception) {
        kel::caught error(exception);
        auto *invalid = error.as<regXNameInvalid>();
        return std::string(kel::view(error.type_name())) + (invalid ? invalid->getName().Str() : "");
    }
    return "";
}

struct Registry : Folder {
    Registry() {
        fs::permissions(folder, fs::perms(0755));
        ::setenv("KELSTDMT_REGISTRY", at("in").c_str(), 1);
    }
    ovkRegistryKey create(const char *name) {
        ovkRegistryKey key;
        EXPECT_TRUE(key.Create(ovkRegistry::User()->Root(), name)) << name << ": " << Error_GetLast();
        return key;
    }

    const fs::path m_place = folder, m_user = m_place / "in/user";
};

TEST_F(Registry, ValuesAreFilesThatCanBeReadAndMadeByHand) {
    const mode_t before = ::umask(0277);
    ovkRegistryKey key = create("Software\\ORV"), machine;
    EXPECT_TRUE(key.SetValue("Lines", "a\n\nb\n") && key.SetValue("Itself", nullptr) &&
                key.SetValue("a b-ö", "ü"));
    EXPECT_TRUE(kel::set_registry_value(key, {"Blob", 3, std::string("\0\xff\n", 3)}));
    EXPECT_TRUE(kel::set_registry_value(key, {"", 0, ""}) && key.SetValue("", "text again"));
    EXPECT_TRUE(machine.Create(ovkRegistry::System()->Root(), "a") && machine.SetValue("b", "c"));
    ::umask(before);
    const std::string orv = "in/user/software/orv/";
    EXPECT_EQ(entries(at(orv)),
              (Names{"a b-ö.text", "blob.data", "default..text", "itself.text", "lines.text"}));
    EXPECT_EQ(get(orv + "lines.text") + get(orv + "blob.data"),
              std::string("a\n\nb\n\ntype 3\n\0\xff\n", 16));
    const std::pair<std::string, unsigned> modes[] = {{"in", 0755},
                                                      {"in/user", 0700},
                                                      {orv, 0700},
                                                      {orv + "lines.text", 0600},
                                                      {"in/machine/a", 0755},
                                                      {"in/machine/a/b.text", 0644},
                                                      {"in/machine/.lock", 0644}};
    for (const auto &[entry, mode] : modes)
        EXPECT_EQ(unsigned(fs::status(at(entry)).permissions()), mode) << entry;

    put(orv + "lines.text", "8080");
    put(orv + "cut.text", std::string("ab\0c\n", 5));
    put(orv + "twice.text", "counts\n");
    put(orv + "twice.data", "type 3\n");
    int number = 0;
    for (const char *head : {"", "type 3", "type -3\n", "type 1\nxy", "type 99999999999\n", "type 3 \n"})
        put(orv + "bad" + std::to_string(number++) + ".data", head);
    for (const char *foreign : {"UPPER.text", "a.b.text", "a?.text", "Upper/x", "a?/x"})
        put(orv + foreign, "no value");
    kel::registry_value value;
    std::vector<kel::registry_value> values;
    Names told;
    Error_SetLast(77);
    ASSERT_TRUE(kel::registry_values(key, values) && Error_GetLast() == 77);
    for (const auto &each : values)
        told.push_back(each.name + "=" + std::to_string(each.type) + each.bytes);
    EXPECT_EQ(told, (Names{"=1text again", "a b-ö=1ü", std::string("blob=3\0\xff\n", 9), "cut=1ab",
                           "itself=1Itself", "lines=18080", "twice=1counts"}));
    EXPECT_TRUE(kel::registry_subkeys(key, told) && told.empty());
    EXPECT_TRUE(!kel::get_registry_value(key, "bad0", value) && Error_GetLast() == 13);
    EXPECT_TRUE(key.DeleteValue("TWICE") && !key.DeleteValue("twice") && Error_GetLast() == 2);
}

TEST_F(Registry, NamesThatAreNone) {
    ovkRegistryKey key = create("");
    EXPECT_TRUE(key.IsKeyValid("Software\\ORV\\Server") && !key.IsNameValid("a\\b") && key.IsNameValid(""));
    for (const char *text : {"a.b", "x:y", "a/b", "*", static_cast<const char *>(nullptr), xstrNullStr})
        EXPECT_FALSE(key.IsKeyValid(text) || key.SetValue(text, "v") || key.DeleteSubkey(text))
            << kel::printed(text);
    // A registry with rules of its own cannot reach out either, and gives no names that others cannot reach.
    ovkRegistry loose(ovkRegistry::UserKind, '|', "");
    ovkRegistryKey root(loose.Root()), sub;
    for (const char *name : {"..", ".", "../x", "a/b", ".lock", "a.text", "a\\b"}) {
        EXPECT_FALSE(sub.Create(root, name) || root.SetValue(name, "v") || root.DeleteSubkey(name)) << name;
        EXPECT_EQ(Error_GetLast(), 123) << name;
    }
    EXPECT_TRUE(sub.Create(root, "one|two") && fs::exists(m_user / "one/two"));
    EXPECT_TRUE(key.SetValue(std::string(250, 'n').c_str(), "v"));
    EXPECT_TRUE(!key.SetValue(std::string(251, 'n').c_str(), "v") && Error_GetLast() == 206);
    for (const char *bad : {"\\", "\\one", "one\\\\two"})
        EXPECT_FALSE(sub.Create(key, bad) || sub.IsOpened()) << bad;
    const std::string nul("a\0b", 3), most(16u << 20, 'x');
    for (const kel::registry_value &bad :
         {kel::registry_value{nul, 1, ""}, {"a", -1, ""}, {"a", 1, nul}, {"a", 3, most + 'x'}})
        EXPECT_FALSE(kel::set_registry_value(key, bad)) << bad.type;
    EXPECT_TRUE(kel::set_registry_value(key, {"a", 3, most}));
}

TEST_F(Registry, KeysAndTheirHandles) {
    const auto descriptors = open_descriptors();
    {
        ovkRegistryKey reader;
        Names subkeys;
        EXPECT_TRUE(!reader.Open(ovkRegistry::User()->Root(), "a") &&
                    read(ovkRegistry::User()->Root(), "v") == "none");
        EXPECT_TRUE(kel::registry_subkeys(ovkRegistry::User()->Root(), subkeys) && subkeys.empty());
        EXPECT_FALSE(fs::exists(m_user)) << "reading makes nothing";

        ovkRegistryKey a = create("A\\B\\"), b(a), again, copy;
        EXPECT_TRUE(again.Open(ovkRegistry::User()->Root(), "a\\b") && copy.Open(again, "") &&
                    a.SetValue("v", "1"));
        a.Close();
        EXPECT_TRUE(!a.IsOpened() && !a.SetValue("v", "2") && Error_GetLast() == 6);
        EXPECT_EQ(read(b, "v") + read(again, "v") + read(copy, "v"), "111");
        EXPECT_TRUE(b.Create(b, "c") && b.SetValue("deep", "3")) << "a key may become its own subkey";
        EXPECT_TRUE(!b.Create(a, "x") && b.IsOpened()) << "without a parent nothing is closed";
        ovkRegistryKey root = create("");
        EXPECT_TRUE(!root.DeleteSubkey("") && !root.DeleteSubkey("a") && Error_GetLast() == 145);
        EXPECT_TRUE(!again.DeleteSubkey("missing") && Error_GetLast() == 2);
        EXPECT_TRUE(again.DeleteSubkey("C") && again.SetValue("still", "here"));
        const std::function<bool()> operations[] = {
            [&] { return b.SetValue("v", "lost"); }, [&] { return !b.GetValue("deep").IsNull(); },
            [&] { return copy.Create(b, "x"); }, [&] { return kel::registry_subkeys(b, subkeys); }};
        for (const auto &operation : operations)
            EXPECT_TRUE(!operation() && Error_GetLast() == 1018) << &operation - operations;
        EXPECT_TRUE(copy.Create(again, "c") && copy.GetValue("deep").IsNull());
    }
    EXPECT_EQ(open_descriptors(), descriptors);
}

TEST_F(Registry, ObjectsWithTypedValues) {
    const Key user(regRegistry::User()), key(user->CreateSubkey("Typed"));
    ASSERT_TRUE(key && !user->OpenSubkey("missing"));
    const auto check = [&] {
        for (auto [text, number] :
             {std::pair(" +2.5x", 2.5), {"0x1p4", 16.0}, {"yes", 0.0}, {"1.5e999", HUGE_VAL}}) {
            key->SetValue("real", text);
            EXPECT_EQ(key->GetRealValue("real"), number) << text;
        }
        key->SetValue("real", -1234567.0);
        EXPECT_EQ(kel::view(key->GetStringValue("real")), "-1.23457e+06");
    };
    check();
    const std::string make = "localedef -c -i de_DE -f UTF-8 '" + at("de_DE") + "' >/dev/null 2>&1";
    ::setenv("LOCPATH", m_place.c_str(), 1);
    if (std::system(make.c_str()) >= 0 && std::setlocale(LC_ALL, "de_DE")) check();
    std::setlocale(LC_ALL, "C");
    ::unsetenv("LOCPATH");
    key->SetValue("int", "9x");
    key->SetValue("yes", xbool{200});
    key->SetValue("no", xbool{0});
    EXPECT_EQ(read(create("typed"), "yes") + read(create("typed"), "no"), "truefalse");
    EXPECT_TRUE(key->GetIntValue("int") == 9 && key->GetBoolValue("yes") == 1 &&
                key->GetBoolValue("int") == 128);
    EXPECT_TRUE(kel::is_nil(key->GetRealValue("none")) && key->GetIntValue("none") == INT_MIN);
    EXPECT_EQ(thrown([&] { key->OpenSubkey("a.b"); }), "reglib::XNameInvalida.b");
    EXPECT_TRUE(key->DeleteValue("int") && !key->DeleteValue("int") && key->GetStringValue("int").IsNull());
    EXPECT_TRUE(user->DeleteSubkey("typed"));
    EXPECT_EQ(thrown([&] { key->SetValue("v", 1.5); }), "reglib::XAccess");
    key->Close();
    EXPECT_EQ(thrown([&] { key->CreateSubkey("a.b"); }), "reglib::XKeyClosed");
}

// Whatever lies in the tree, nothing outside is read, written or removed; what fuzz/registry_fuzz.cpp puts
// there is not told again.
TEST_F(Registry, NothingInTheTreeLeadsOut) {
    const fs::path key_folder = m_user / "key";
    const std::string secret = put("outside/secret.text", "secret\n"), outside = at("outside/sub");
    fs::create_directory(outside);
    ovkRegistryKey key = create("key"), sub;
    fs::create_symlink(secret, key_folder / "value.text");
    fs::create_symlink(outside, m_user / ".deleted");
    ASSERT_EQ(::mkfifo((key_folder / "pipe.text").c_str(), 0600), 0);
    fs::resize_file(put("in/user/key/huge.text", ""), std::uintmax_t{1} << 40);
    EXPECT_EQ(read(key, "value") + read(key, "pipe") + read(key, "huge"), "nonenonenone");
    EXPECT_TRUE(key.SetValue("value", "mine") && key.SetValue("pipe", "mine") && read(key, "pipe") == "mine");
    fs::create_directory(key_folder / ".git");
    EXPECT_TRUE(!create("").DeleteSubkey("key") && Error_GetLast() == 145) << "that is no key";
    fs::remove(key_folder / ".git");
    // What processes left that were killed while they made or deleted a key, in the key and beside it.
    fs::create_directories(key_folder / ".deleted/.deleted");
    fs::create_symlink(outside, key_folder / ".made");
    ovkRegistryKey leaving = create("leaving");
    EXPECT_TRUE(leaving.SetValue("v", "old") && sub.Create(key, "sub") && key.DeleteSubkey("sub"));
    fs::remove(m_user / ".deleted");
    fs::rename(m_user / "leaving", m_user / ".deleted");
    EXPECT_TRUE(!sub.Create(leaving, "lost") && Error_GetLast() == 1018);
    fs::create_directory(m_user / ".made");
    EXPECT_TRUE(create("").DeleteSubkey("key") && create("key").SetValue("v", "1"));
    EXPECT_TRUE(create("").DeleteSubkey("key"));
    EXPECT_EQ(entries(m_user), (Names{".lock"}));
    EXPECT_EQ(entries(at("outside")), (Names{"secret.text", "sub"}));
    fs::remove(m_user / ".lock");
    fs::create_symlink(secret, m_user / ".lock");
    EXPECT_FALSE(create("").SetValue("v", "1"));
    EXPECT_EQ(get("outside/secret.text"), "secret\n");
}

TEST_F(Registry, RefusalsLeaveTheOldValue) {
    ovkRegistryKey key = create("key");
    ASSERT_TRUE(key.SetValue("v", "old"));
    EXPECT_EQ(in_child([&] {
                  ::signal(SIGXFSZ, SIG_IGN);
                  const rlimit small{1000, 1000}, few{0, 0};
                  ::setrlimit(RLIMIT_FSIZE, &small);
                  EXPECT_TRUE(!key.SetValue("v", std::string(5000, 'x').c_str()) && Error_GetLast() == 223);
                  ::setrlimit(RLIMIT_NOFILE, &few);
                  EXPECT_TRUE(!key.SetValue("v", "new") && Error_GetLast() == 4);
                  EXPECT_TRUE(key.GetValue("v").IsNull() && Error_GetLast() == 4);
              }),
              0);
    // What the superuser makes in another's folder, down to the tree and in it, does not lock its owner out.
    if (::geteuid() == 0) {
        fs::create_directory(at("home"));
        ASSERT_EQ(::chown(at("home").c_str(), 65534, 65534), 0);
        ::setenv("KELSTDMT_REGISTRY", at("home/data/in").c_str(), 1);
        EXPECT_TRUE(create("owned").SetValue("v", "by root"));
        EXPECT_EQ(in_child([&] {
                      ASSERT_EQ(::setgid(65534) + ::setuid(65534), 0);
                      EXPECT_EQ(read(create("owned"), "v"), "by root");
                      EXPECT_TRUE(create("owned\\sub").SetValue("v", "mine")) << Error_GetLast();
                      EXPECT_EQ(::mkdir(at("home/data/other").c_str(), 0700), 0);
                  }),
                  0);
        ::setenv("KELSTDMT_REGISTRY", at("in").c_str(), 1);
    }
    EXPECT_EQ(read(key, "v"), "old");
    EXPECT_TRUE(entries(m_place, ".new").empty());

    // Somebody who holds the lock is waited for, but not for ever.
    const int lock = ::open((m_user / ".lock").c_str(), O_RDWR | O_CLOEXEC);
    struct flock whole {};
    whole.l_type = F_WRLCK;
    ASSERT_EQ(::fcntl(lock, F_OFD_SETLK, &whole), 0);
    EXPECT_TRUE(!key.SetValue("v", "new") && Error_GetLast() == 33);
    std::thread releaser([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        fs::remove(m_user / ".lock");
        ::close(lock);
    });
    EXPECT_TRUE(key.SetValue("v", "new")) << Error_GetLast();
    releaser.join();
    EXPECT_EQ(read(key, "v"), "new");
    EXPECT_TRUE(fs::exists(m_user / ".lock")) << "one that is gone keeps nobody apart";
}

// What writers do all the time, on one key: one value that is replaced, one that turns from text to data and
// back, one of their own, and a key that comes and goes.
void keep_writing(const ovkRegistryKey &parent, unsigned seed, int rounds) {
    std::mt19937 random(seed);
    const std::string own_name = "own" + std::to_string(seed);
    ovkRegistryKey key, sub;
    ASSERT_TRUE(key.Open(parent, ""));
    for (int i = 0; i < rounds; ++i) {
        const int type = static_cast<int>(random() % 3);
        EXPECT_TRUE(key.SetValue("shared", told_text(random() % 20000).c_str())) << Error_GetLast();
        EXPECT_TRUE(kel::set_registry_value(key, {"turning", type, told_text(random() % 9000)}));
        EXPECT_TRUE(key.SetValue(own_name.c_str(), told_text(seed).c_str()));
        EXPECT_TRUE(is_whole(read(key, "shared")));
        if (!sub.Create(key, "sub")) continue;
        for (const char *name : {"a", "b", "c"})
            sub.SetValue(name, told_text(random() % 99).c_str());
        key.DeleteSubkey("sub");
    }
}

pid_t start_writing(const ovkRegistryKey &parent, unsigned seed, int rounds) {
    return start(
        [&, seed, rounds] { return keep_writing(parent, seed, rounds), int{testing::Test::HasFailure()}; });
}

void expect_whole(const ovkRegistryKey &key, int when) {
    kel::registry_value turning;
    ASSERT_TRUE(is_whole(read(key, "shared"))) << when;
    ASSERT_TRUE(kel::get_registry_value(key, "turning", turning) && is_whole(turning.bytes)) << when;
}

TEST_F(Registry, WritersBesideEachOtherAndKilledOnesLeaveWholeValues) {
    const char *wanted = std::getenv("KELSTDMT_KILLS");
    std::mt19937 random(7);
    ovkRegistryKey key = create("key"), sub;
    keep_writing(key, 1, 1);
    for (int kills = wanted ? std::atoi(wanted) : 25; kills > 0; --kills) {
        const pid_t killed = start_writing(key, 100, INT_MAX), other = start_writing(key, 101, 8);
        std::thread first([&] { keep_writing(key, 1, 8); }), second([&] { keep_writing(key, 2, 8); });
        for (auto left = random() % 100; left > 0; --left)
            expect_whole(key, kills);
        ::kill(killed, SIGKILL);
        first.join();
        second.join();
        EXPECT_TRUE(wait_for(killed) == -SIGKILL && wait_for(other) == 0);
        expect_whole(key, kills);
        for (unsigned seed : {1u, 2u, 101u})
            EXPECT_EQ(read(key, ("own" + std::to_string(seed)).c_str()), told_text(seed));
        std::vector<kel::registry_value> values;
        ASSERT_TRUE(!sub.Open(key, "sub") || kel::registry_values(sub, values));
        for (std::size_t i = 0; i < values.size(); ++i)
            ASSERT_TRUE(values[i].name[0] == char('a' + i) && is_whole(values[i].bytes)) << kills;
        // The next writer goes on as if nothing had been.
        ASSERT_TRUE(key.SetValue("shared", "1:b")) << Error_GetLast();
        if (kills % 2) continue;
        key.DeleteSubkey("sub");
        ASSERT_TRUE(create("key\\sub").SetValue("a", "0:") && key.DeleteSubkey("sub"));
        ASSERT_EQ(entries(m_user, "."), (Names{".lock"})) << kills;
    }
}

}  // namespace
