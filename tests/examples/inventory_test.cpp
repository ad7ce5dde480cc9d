// examples/inventory as its users meet it: the built program, with account files that are well made, nearly
// so, and noise. It compares itself what its three encodings carry.
#include <random>

#include "examples/running.h"

namespace {

constexpr const char *some_passwd =
    "root:x:0:0:root:/root:/bin/bash\n"
    "ada:x:1000:1000:Ada Lovelace,Room 1,,:/home/ada:\n";
constexpr const char *some_group = "root:x:0:\nadm:x:4:ada,root\nada:x:1000:\n";

struct inventory_test : ExampleTest {
    inventory_test() : ExampleTest("inventory") {}
    const std::string files = at("passwd") + ' ' + at("group");
};

TEST_F(inventory_test, TellsWhatTheFilesSayAndNamesMalformedLines) {
    put("passwd", some_passwd), put("group", some_group);
    Expect(files, 0,
           {"2 accounts from ",
            "inventory::Account { Name: \"ada\"; Uid: 1000; Gid: 1000; FullName: \"Ada Lovelace\"; "
            "Home: \"/home/ada\"; Shell: inventory::LoginShell { Path: \"\"; Kind: shellDefault; }; "
            "Groups: inventory::Names [ \"ada\", \"adm\" ]; }",
            "9 of 9 came back equal"});
    put("passwd",
        "# a comment, then an empty line\n\ngood:x:1:1::/:\r\nfew:x:1\n:x:1:1:::\nbig:x:4294967294:1:::\n"
        "bell:x:1:1:\a::\ngood:x:2:2:::\nlast:x:1:1:::");
    Expect(files, 0,
           {"2 accounts from ", " (5 malformed lines skipped)",
            "passwd:6: skipped: the user id \"4294967294\" is no number from 0 to 2147483647",
            "passwd:7: skipped: byte 12 is the control character 7",
            "passwd:8: skipped: there is an account \"good\" already"});
    Expect(files + " >/dev/full", 1, {"standard output: "});
}

TEST_F(inventory_test, RandomBytesDoNoHarm) {
    std::mt19937 chance(1);
    std::string noise(200000, '\0');
    for (char &byte : noise)
        byte = static_cast<char>(chance());
    put("passwd", noise), put("group", noise.substr(1));
    for (char byte : Expect(files, 1, {"there is no account and no group to go on with"}).err)
        ASSERT_TRUE(byte == '\n' || static_cast<unsigned char>(byte) >= 0x20) << int(byte);
}

}  // namespace
