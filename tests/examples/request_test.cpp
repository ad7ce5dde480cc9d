// examples/request as its users meet it: all roles at once, in a network of its own and without one, and
// roles that find nobody.
#include "examples/running.h"

namespace {

struct request_test : ExampleTest {
    request_test() : ExampleTest("request") {}
};

TEST_F(request_test, TellsTheWholeStory) {
    const std::string trial = " sh -c 'command -v nsenter && ip link add here type veth peer name there'";
    const bool second_machine =
        shell("{ unshare --net" + trial + " || unshare --net --map-root-user" + trial + "; } 2>&1").status ==
        0;
    for (const bool plain : {false, true}) {
        Outcome told = Run(plain ? "--plain" : "", "ORVNMSPORT=1");
        EXPECT_EQ(told.status, 0) << told.out << told.err;
        for (const char *words :
             {"stage  | No name server answers on port 1:", "server | serving on port ",
              "client | 17 + 25 = 42\n", "client | 1 / 0 fails: division by zero\n",
              "client | primes: 100%, 216816 so far\n", "client | 6 * 7 = 42\n", "client | alive? yes\n",
              "client | version? KEL netServer Version 0.99\n", "client | the count was stopped at ",
              "server | told to shut down\n", "The name is registered no more"})
            expect_says(told.out, words);
        if (plain || !second_machine) {
            expect_says(told.out, "There is no second machine");
        } else {
            expect_says(told.out,
                        "there  | Arithmetic@10.0.1.1 refuses: Connection refused due to lack of rights\n");
            expect_says(told.out, "there  | 2 + 3 = 5\n");
        }
    }
}

TEST_F(request_test, FailuresAndWrongUsageAreTold) {
    for (const char *command : {"ask X", "calculate X@127.0.0.1 '1 + 1'", "end X", "serve X"}) {
        const Outcome told = Run(command, "ORVNMSPORT=1");
        EXPECT_EQ(told.status, 1) << command << told.out;
        expect_says(told.err, "request: ");
        expect_says(told.err, "Name Server");
    }
    for (const char *wrong : {"serve", "ask a b", "calculate a", "dance a", "--fast"})
        EXPECT_EQ(Run(wrong).status, 2) << wrong;
}

}  // namespace
