// The registry: its files byte by byte, its rules, and what other writers, kills, refusals and hostile
// entries do to it (KELSTDMT_KILLS: how many writers are killed).
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <atomic>
#include <chrono>
#include <climits>
#include <clocale>
#include <cmath>
#include <csignal>
#include <cstring>
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

void write(const fs::path &path, std::string_view bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}
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
// The declared name of what the action throws.
template <class Action>
std::string thrown(Action action, std::string *name = nullptr) {
    try {
        action();
    } catch (xthrowable *exception) {
        kel::caught error(exception);
        if (auto *invalid = error.as<regXNameInvalid>(); invalid && name)
            *name = kel::view(invalid->getName());
        return std::string(kel::view(error.type_name()));
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
    std::string file(const std::string &name) { return get("in/user/" + name); }

    const fs::path m_place = folder, m_user = m_place / "in/user";
};

TEST_F(Registry, ValuesAreFilesThatCanBeReadAndMadeByHand) {
    const mode_t before = ::umask(0277);
    ovkRegistryKey key = create("Software\\ORV"), machine;
    EXPECT_TRUE(key.SetValue("Port", "80") && key.SetValue("", "of the key") && key.SetValue("Empty", ""));
    EXPECT_TRUE(key.SetValue("Lines", "a\n\nb\n") && key.SetValue("Itself", nullptr) &&
                key.SetValue("a b-ö", "ü"));
    EXPECT_TRUE(kel::set_registry_value(key, {"Blob", 3, std::string("\0\xff\n", 3)}));
    EXPECT_TRUE(kel::set_registry_value(key, {"", 0, ""}) && key.SetValue("", "text again"));
    EXPECT_TRUE(machine.Create(ovkRegistry::System()->Root(), "a") && machine.SetValue("b", "c"));
    ::umask(before);
    EXPECT_EQ(entries(m_user),
              (Names{".lock", "software", "software/orv", "software/orv/a b-ö.text", "software/orv/blob.data",
                     "software/orv/default..text", "software/orv/empty.text", "software/orv/itself.text",
                     "software/orv/lines.text", "software/orv/port.text"}));
    EXPECT_EQ(file("software/orv/port.text"), "80\n");
    EXPECT_EQ(file("software/orv/empty.text"), "\n");
    EXPECT_EQ(file("software/orv/lines.text"), "a\n\nb\n\n");
    EXPECT_EQ(file("software/orv/blob.data"), std::string("type 3\n\0\xff\n", 10));
    using Mode = std::pair<const char *, unsigned>;
    for (auto [entry, mode] : {Mode("in", 0755), Mode("in/user", 0700), Mode("in/user/software/orv", 0700),
                               Mode("in/user/software/orv/port.text", 0600), Mode("in/machine/a", 0755),
                               Mode("in/machine/a/b.text", 0644), Mode("in/machine/.lock", 0644)})
        EXPECT_EQ(unsigned(fs::status(m_place / entry).permissions()), mode) << entry;
    Error_SetLast(77);
    EXPECT_EQ(read(key, "PORT") + read(key, "") + read(key, "itself") + read(key, "lines"),
              "80text againItselfa\n\nb\n");
    kel::registry_value value;
    std::vector<kel::registry_value> values;
    Names told;
    EXPECT_TRUE(kel::get_registry_value(key, "BLOB", value) && value.type == 3 && key.SetValue("blob", "x"));
    EXPECT_TRUE(create("x\\y").SetValue("v", "1") && create("x").DeleteSubkey("Y") &&
                kel::set_registry_value(key, value) && key.SetValue("gone", "x") && key.DeleteValue("gone") &&
                kel::registry_values(key, values) && kel::registry_subkeys(key, told));
    EXPECT_EQ(Error_GetLast(), 77) << "success leaves it alone";
    EXPECT_EQ(read(key, "blob"), "none");

    const fs::path orv = m_user / "software/orv";
    write(orv / "port.text", "8080");
    write(orv / "cut.text", std::string("ab\0c\n", 5));
    write(orv / "blob.text", "counts\n");
    for (const char *head : {"", "type 3", "type -3\n", "type 1\nxy", "type 99999999999\n", "type 3 \n"})
        write(orv / ("bad" + std::to_string(std::strlen(head)) + ".data"), head);
    for (const char *foreign : {"UPPER.text", "a.b.text", "a?.text"})
        write(orv / foreign, "no value");
    fs::create_directory(orv / "Upper");
    fs::create_directory(orv / "a?");
    EXPECT_EQ(read(key, "port") + read(key, "cut") + read(key, "upper"), "8080abnone");
    ASSERT_TRUE(kel::registry_values(key, values));
    for (const auto &each : values)
        told.push_back(each.name + "=" + std::to_string(each.type) + each.bytes);
    EXPECT_EQ(told, (Names{"=1text again", "a b-ö=1ü", "blob=1counts", "cut=1ab", "empty=1", "itself=1Itself",
                           "lines=1a\n\nb\n", "port=18080"}));
    EXPECT_TRUE(kel::registry_subkeys(key, told) && told.empty());
    EXPECT_TRUE(!kel::get_registry_value(key, "bad0", value) && Error_GetLast() == 13);
    EXPECT_TRUE(key.DeleteValue("BLOB") && !key.DeleteValue("blob") && !fs::exists(orv / "blob.data"));
    EXPECT_EQ(Error_GetLast(), 2);
}

TEST_F(Registry, NamesThatAreNone) {
    const char *const null = nullptr;
    ovkRegistryKey key = create("");
    EXPECT_TRUE(key.IsKeyValid("Software\\ORV\\Server") && !key.IsNameValid("a\\b"));
    EXPECT_TRUE(key.IsNameValid("a b") && key.IsNameValid(""));
    for (const char *text : {"a.b", "x:y", "..", "a/b", "*", "?", null, xstrNullStr}) {
        EXPECT_FALSE(key.IsKeyValid(text) || key.IsNameValid(text)) << kel::printed(text);
        EXPECT_FALSE(key.SetValue(text, "v") || key.DeleteValue(text) || key.DeleteSubkey(text));
        EXPECT_TRUE(key.GetValue(text).IsNull());
    }
    // A registry with rules of its own cannot reach out either, and gives no names that others cannot reach.
    ovkRegistry loose(ovkRegistry::UserKind, '|', ""), odd(static_cast<ovkRegistry::Type>(7), '\\', "");
    EXPECT_FALSE(odd.Root().IsOpened() || odd.Root().IsKeyValid("a"));
    ovkRegistryKey root(loose.Root()), sub;
    for (const char *name : {"..", ".", "../x", "a/b", ".lock", ".new", "a.text", "a\\b"}) {
        EXPECT_FALSE(sub.Create(root, name) || root.SetValue(name, "v") || root.DeleteSubkey(name)) << name;
        EXPECT_EQ(Error_GetLast(), 123) << name;
    }
    EXPECT_TRUE(sub.Create(root, "one|two") && fs::exists(m_user / "one/two"));
    const std::string longest(250, 'n'), longer(251, 'n'), key_name(255, 'k');
    EXPECT_TRUE(key.SetValue(longest.c_str(), "v") && read(key, longest.c_str()) == "v");
    EXPECT_TRUE(sub.Create(key, key_name.c_str()) && sub.Create(sub, key_name.c_str()));
    EXPECT_FALSE(key.SetValue(longer.c_str(), "v") || sub.Create(key, (key_name + "k").c_str()));
    EXPECT_EQ(Error_GetLast(), 206);
    for (const char *bad : {"\\", "\\one", "one\\\\two", "one\\\\"})
        EXPECT_FALSE(sub.Create(key, bad) || sub.IsOpened()) << bad;
    EXPECT_FALSE(kel::set_registry_value(key, {std::string("a\0b", 3), 1, ""}));
    EXPECT_FALSE(kel::set_registry_value(key, {"a", 1, std::string("\0", 1)}));
    EXPECT_FALSE(kel::set_registry_value(key, {"a", -1, ""}));
    EXPECT_FALSE(kel::set_registry_value(key, {"a", 3, std::string((16u << 20) + 1, 'x')}));
    EXPECT_TRUE(kel::set_registry_value(key, {"a", 3, std::string(16u << 20, 'x')}));
}

TEST_F(Registry, KeysAndTheirHandles) {
    const auto descriptors = open_descriptors();
    {
        ovkRegistryKey reader;
        EXPECT_FALSE(reader.Open(ovkRegistry::User()->Root(), "a") || fs::exists(m_user))
            << "reading makes nothing";
        EXPECT_FALSE(ovkRegistry::User()->Root().GetValue("v").Str() != xstrNullStr || fs::exists(m_user));
        Names subkeys;
        Error_SetLast(77);
        EXPECT_TRUE(kel::registry_subkeys(ovkRegistry::User()->Root(), subkeys) && subkeys.empty() &&
                    Error_GetLast() == 77);

        ovkRegistryKey a = create("A\\B\\"), b(a), again, copy;
        EXPECT_TRUE(again.Open(ovkRegistry::User()->Root(), "a\\b") && copy.Open(again, ""));
        EXPECT_TRUE(a.SetValue("v", "1"));
        a.Close();
        EXPECT_TRUE(!a.IsOpened() && !a.SetValue("v", "2") && Error_GetLast() == 6);
        EXPECT_EQ(read(b, "v") + read(again, "v") + read(copy, "v"), "111");
        EXPECT_TRUE(b.Create(b, "c") && b.SetValue("deep", "3")) << "a key may become its own subkey";
        EXPECT_FALSE(b.Create(a, "x"));
        EXPECT_TRUE(b.IsOpened()) << "without a parent nothing is closed";

        ovkRegistryKey root = create("");
        EXPECT_TRUE(!root.DeleteSubkey("a") && Error_GetLast() == 145);
        EXPECT_TRUE(!root.DeleteSubkey("") && !again.DeleteSubkey("missing") && Error_GetLast() == 2);
        EXPECT_TRUE(again.DeleteSubkey("C") && again.SetValue("still", "here"));
        const std::function<bool()> operations[] = {[&] { return b.SetValue("v", "lost"); },
                                                    [&] { return !b.GetValue("deep").IsNull(); },
                                                    [&] { return b.DeleteValue("deep"); },
                                                    [&] { return b.DeleteSubkey("x"); },
                                                    [&] { return copy.Create(b, "x"); },
                                                    [&] { return copy.Open(b, ""); },
                                                    [&] { return kel::registry_subkeys(b, subkeys); }};
        for (const auto &operation : operations) {
            Error_SetLast(0);
            EXPECT_TRUE(!operation() && Error_GetLast() == 1018) << &operation - operations;
        }
        EXPECT_TRUE(copy.Create(again, "c") && copy.GetValue("deep").IsNull());
        EXPECT_EQ(entries(m_user), (Names{".lock", "a", "a/b", "a/b/c", "a/b/still.text", "a/b/v.text"}));
        // A tree that is put in the place of another is found at once, by its root.
        fs::rename(m_user, m_place / "old");
        EXPECT_TRUE(root.GetValue("x").IsNull() && create("new").SetValue("v", "1") &&
                    fs::exists(m_user / "new/v.text"));
    }
    EXPECT_EQ(open_descriptors(), descriptors);
}

TEST_F(Registry, ObjectsWithTypedValues) {
    const Key user(regRegistry::User()), key(user->CreateSubkey("Typed"));
    ASSERT_TRUE(key && !user->OpenSubkey("missing"));
    const auto check = [&] {
        for (double number : {0.0, 80.0, -2.5, 1234567.0, 1e-300, 1.5e300}) {
            std::ostringstream expected;
            expected.imbue(std::locale::classic());
            expected << number;
            key->SetValue("real", number);
            EXPECT_EQ(kel::view(key->GetStringValue("real")), expected.str());
            EXPECT_NEAR(key->GetRealValue("real"), number, std::abs(number) * 1e-5);
        }
        for (auto [text, number] :
             {std::pair(" +2.5x", 2.5), std::pair("-1e3", -1000.0), std::pair("0x1p4", 16.0),
              std::pair("yes", 0.0), std::pair("1.5e999", HUGE_VAL), std::pair("-1.5e-999", 0.0),
              std::pair("inf", HUGE_VAL), std::pair("--1", 0.0), std::pair("", 0.0),
              std::pair("4.9e-324", 4.9e-324)}) {
            key->SetValue("real", text);
            EXPECT_EQ(key->GetRealValue("real"), number) << text;
        }
    };
    check();
    const std::string make =
        "localedef -c -i de_DE -f UTF-8 '" + (m_place / "de_DE").string() + "' >/dev/null 2>&1";
    ::setenv("LOCPATH", m_place.c_str(), 1);
    if (std::system(make.c_str()) >= 0 && std::setlocale(LC_ALL, "de_DE")) check();
    std::setlocale(LC_ALL, "C");
    ::unsetenv("LOCPATH");
    for (int number : {80, INT_MIN + 1}) {
        key->SetValue("int", number);
        EXPECT_EQ(key->GetIntValue("INT"), number);
    }
    key->SetValue("int", "9x");
    key->SetValue("yes", true);
    key->SetValue("other", xbool{200});
    key->SetValue("no", xbool{0});
    EXPECT_EQ(kel::view(key->GetStringValue("other")), "true");
    EXPECT_EQ(kel::view(key->GetStringValue("no")), "false");
    EXPECT_TRUE(key->GetIntValue("int") == 9 && key->GetBoolValue("yes") == 1 &&
                key->GetBoolValue("no") == 0);
    EXPECT_TRUE(key->GetBoolValue("int") == 128 && key->GetBoolValue("none") == 128);
    EXPECT_TRUE(key->GetStringValue("none").IsNull() && kel::is_nil(key->GetRealValue("none")));
    EXPECT_EQ(key->GetIntValue("none"), -2147483647 - 1);

    std::string name;
    EXPECT_EQ(thrown([&] { key->OpenSubkey("a.b"); }, &name) + name, "reglib::XNameInvalida.b");
    EXPECT_EQ(thrown([&] { key->SetValue("a\\b", 1); }), "reglib::XNameInvalid");
    EXPECT_EQ(thrown([&] { key->GetBoolValue(nullptr); }), "reglib::XNameInvalid");
    EXPECT_EQ(thrown([&] { key->DeleteSubkey("x:y"); }), "reglib::XNameInvalid");
    EXPECT_TRUE(user->DeleteSubkey("typed"));
    EXPECT_EQ(thrown([&] { key->SetValue("v", 1.5); }), "reglib::XAccess");
    key->Close();
    EXPECT_EQ(thrown([&] { key->CreateSubkey("a.b"); }) + thrown([&] { key->GetIntValue("a\\b"); }),
              "reglib::XKeyClosedreglib::XKeyClosed");
    user->Close();
    EXPECT_TRUE(Key(user->CreateSubkey("a"))) << "the root stays open";
    EXPECT_EQ(kel::view(static_cast<xobject &>(*user).getrtti()->getname()), "reglib::Registry");
    for (xrttistruct *root : {xrtti_get_p_regKey(), xrtti_get_p_regXNameInvalid(),
                              xrtti_get_p_regXKeyClosed(), xrtti_get_p_regXAccess()})
        EXPECT_EQ(root->getparents(), nullptr) << root->getname();
}

// Whatever lies in the tree, nothing outside is read, written or removed.
TEST_F(Registry, NothingInTheTreeLeadsOut) {
    const fs::path outside = m_place / "outside", key_folder = m_user / "key";
    fs::create_directories(outside / "sub");
    write(outside / "secret.text", "secret\n");
    ovkRegistryKey key = create("key"), sub;
    fs::create_symlink(outside, key_folder / "link");
    fs::create_symlink(outside / "secret.text", key_folder / "value.text");
    fs::create_symlink(outside / "secret.text", key_folder / "data.data");
    fs::create_symlink(outside / "secret.text", key_folder / ".new");
    fs::create_symlink(outside / "sub", m_user / ".deleted");
    fs::create_directory(key_folder / "folder.text");
    ASSERT_EQ(::mkfifo((key_folder / "pipe.text").c_str(), 0600), 0);
    write(key_folder / "huge.text", "");
    fs::resize_file(key_folder / "huge.text", std::uintmax_t{1} << 40);
    EXPECT_FALSE(sub.Open(key, "link") || sub.Create(key, "link\\made") || key.DeleteSubkey("link"));
    for (const char *name : {"value", "data", "folder", "pipe", "huge"})
        EXPECT_EQ(read(key, name), "none") << name;
    std::vector<kel::registry_value> values;
    Names subkeys;
    EXPECT_TRUE(kel::registry_values(key, values) && values.empty());
    EXPECT_TRUE(kel::registry_subkeys(key, subkeys) && subkeys.empty());
    EXPECT_TRUE(key.SetValue("value", "mine") && key.SetValue("pipe", "mine") &&
                !key.SetValue("folder", "mine"));
    EXPECT_EQ(read(key, "value") + read(key, "pipe"), "minemine");
    for (const char *foreign : {"folder.text", ".git"}) {
        fs::create_directory(key_folder / foreign);
        EXPECT_TRUE(!create("").DeleteSubkey("key") && Error_GetLast() == 145) << foreign << " is no key";
        fs::remove(key_folder / foreign);
    }
    // What processes left that were killed while they made or deleted a key, in the key and beside it.
    fs::create_directories(key_folder / ".deleted/.deleted");
    fs::create_symlink(outside / "sub", key_folder / ".made");
    ovkRegistryKey leaving = create("leaving");
    EXPECT_TRUE(leaving.SetValue("v", "old") && sub.Create(key, "sub") && key.DeleteSubkey("sub"));
    fs::remove(m_user / ".deleted");
    fs::rename(m_user / "leaving", m_user / ".deleted");
    EXPECT_TRUE(!leaving.SetValue("v", "lost") && Error_GetLast() == 1018);
    EXPECT_TRUE(!sub.Create(leaving, "lost") && Error_GetLast() == 1018);
    fs::create_directory(m_user / ".made");
    EXPECT_TRUE(create("").DeleteSubkey("key") && create("key").SetValue("v", "1"));
    EXPECT_TRUE(create("").DeleteSubkey("key"));
    EXPECT_EQ(entries(m_user), (Names{".lock"}));
    EXPECT_EQ(entries(outside), (Names{"secret.text", "sub"}));
    EXPECT_EQ(get("outside/secret.text"), "secret\n");
    fs::remove(m_user / ".lock");
    fs::create_symlink(outside / "secret.text", m_user / ".lock");
    EXPECT_FALSE(create("").SetValue("v", "1"));
    EXPECT_EQ(get("outside/secret.text"), "secret\n");
}

TEST_F(Registry, RefusalsLeaveTheOldValue) {
    ovkRegistryKey key = create("key"), machine;
    ASSERT_TRUE(key.SetValue("v", "old") && machine.Create(ovkRegistry::System()->Root(), "key"));
    ASSERT_TRUE(machine.SetValue("v", "for all"));
    const auto descriptors = open_descriptors();
    EXPECT_EQ(
        in_child([&] {
            ::signal(SIGXFSZ, SIG_IGN);
            const rlimit small{1000, 1000};
            ::setrlimit(RLIMIT_FSIZE, &small);
            EXPECT_TRUE(!key.SetValue("v", std::string(5000, 'x').c_str()) && Error_GetLast() == 223);
            const rlimit few{static_cast<rlim_t>(descriptors), static_cast<rlim_t>(descriptors)};
            ::setrlimit(RLIMIT_NOFILE, &few);
            std::vector<int> taken;
            for (int fd; (fd = ::open("/", O_PATH)) >= 0;)
                taken.push_back(fd);
            EXPECT_TRUE(!key.SetValue("v", "new") && Error_GetLast() == 4);
            EXPECT_TRUE(key.GetValue("v").IsNull() && Error_GetLast() == 4);
            for (int fd : taken)
                ::close(fd);
            // Those who are not the owner read the machine's settings, and change nothing.
            if (::geteuid() != 0 || ::setuid(65534) != 0) return;
            ovkRegistryKey other, sub;
            EXPECT_TRUE(other.Open(ovkRegistry::System()->Root(), "key"));
            EXPECT_EQ(read(other, "v"), "for all");
            EXPECT_FALSE(other.SetValue("v", "mine") || other.DeleteValue("v") || sub.Create(other, "sub"));
            EXPECT_EQ(Error_GetLast(), 5);
            EXPECT_EQ(thrown([&] { regKey(other).SetValue("v", 1); }), "reglib::XAccess");
            EXPECT_FALSE(sub.Open(ovkRegistry::User()->Root(), "key"));
        }),
        0);
    EXPECT_EQ(read(key, "v") + read(machine, "v"), "oldfor all");
    EXPECT_TRUE(entries(m_place, ".new").empty());
    // What the superuser writes into another's tree does not lock its owner out.
    if (::geteuid() == 0) {
        fs::remove(m_user / ".lock");
        ASSERT_EQ(::chown(m_user.c_str(), 65534, 65534), 0);
        EXPECT_TRUE(create("owned").SetValue("v", "by root"));
        EXPECT_EQ(in_child([&] {
                      if (::setgid(65534) != 0 || ::setuid(65534) != 0) return;
                      EXPECT_EQ(read(create("owned"), "v"), "by root");
                      EXPECT_TRUE(create("owned\\sub").SetValue("v", "mine")) << Error_GetLast();
                  }),
                  0);
    }

    // Somebody who holds the lock is waited for, but not for ever.
    const int lock = ::open((m_user / ".lock").c_str(), O_RDWR | O_CLOEXEC);
    struct flock whole {};
    whole.l_type = F_WRLCK;
    ASSERT_EQ(::fcntl(lock, F_OFD_SETLK, &whole), 0);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_TRUE(!key.SetValue("v", "new") && Error_GetLast() == 33);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
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

TEST_F(Registry, SeveralWritersOnOneKey) {
    ovkRegistryKey key = create("key");
    keep_writing(key, 1, 1);
    std::atomic<bool> done = false;
    std::vector<pid_t> writers;
    for (unsigned seed = 10; seed < 13; ++seed)
        writers.push_back(start_writing(key, seed, 80));
    std::thread first([&] { keep_writing(key, 20, 80); }), second([&] { keep_writing(key, 21, 80); });
    std::thread last([&] {
        first.join();
        second.join();
        for (pid_t writer : writers)
            EXPECT_EQ(wait_for(writer), 0);
        done = true;
    });
    for (int i = 0; !done; ++i)
        expect_whole(key, i);
    last.join();
    for (unsigned seed : {1u, 10u, 11u, 12u, 20u, 21u})
        EXPECT_EQ(read(key, ("own" + std::to_string(seed)).c_str()), told_text(seed));
    key.DeleteSubkey("sub");
    EXPECT_EQ(entries(m_user, "."), (Names{".lock"}));
}

TEST_F(Registry, KilledWritersLeaveWholeValues) {
    const char *wanted = std::getenv("KELSTDMT_KILLS");
    const int kills = wanted ? std::atoi(wanted) : 25;
    std::mt19937 random(7);
    ovkRegistryKey key = create("key"), sub;
    keep_writing(key, 1, 1);
    for (int kill = 0; kill < kills; ++kill) {
        const unsigned seed = 100 + static_cast<unsigned>(kill);
        const pid_t writer = start_writing(key, seed, INT_MAX);
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 12000));
        ::kill(writer, SIGKILL);
        EXPECT_EQ(wait_for(writer), -SIGKILL);
        expect_whole(key, kill);
        std::vector<kel::registry_value> values;
        ASSERT_TRUE(!sub.Open(key, "sub") || kel::registry_values(sub, values));
        for (std::size_t i = 0; i < values.size(); ++i)
            ASSERT_TRUE(values[i].name[0] == char('a' + i) && is_whole(values[i].bytes)) << kill;
        // The next writer goes on as if nothing had been.
        ASSERT_TRUE(key.SetValue("shared", "1:b")) << Error_GetLast();
        if (kill % 2) continue;
        key.DeleteSubkey("sub");
        ASSERT_TRUE(create("key\\sub").SetValue("a", "0:") && key.DeleteSubkey("sub"));
        ASSERT_EQ(entries(m_user, "."), (Names{".lock"})) << kill;
    }
}

}  // namespace
