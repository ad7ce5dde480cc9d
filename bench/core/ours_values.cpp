// Our values, strings, counts and fields.
#include <kelstdmt/declare.h>

#include <cstdio>

#include "loops.h"

namespace bench {

KEL_DECLARE_STRUCT(BenchRecord)
class BenchRecord : public xobject {
    KEL_CLASS(BenchRecord, xobject)
public:
    int Uid = 0, Gid = 1, Age = 2, Quota = 3, Logins = 4, Shell = 5, Locked = 6, Level = 7;
    double Height = 8.5, Weight = 9.5, Score = 10.5, Rate = 11.5, Load = 12.5, Share = 13.5;
    xstring Name = "Name", Comment = "Comment", Home = "Home", Group = "Group", Host = "Host", Mail = "Mail";
    Ballast ballast;
};
KEL_DEFINE_STRUCT(BenchRecord, "bench::Record", kel::counted, kel::field<&BenchRecord::Uid>("Uid"),
                  kel::field<&BenchRecord::Gid>("Gid"), kel::field<&BenchRecord::Age>("Age"),
                  kel::field<&BenchRecord::Quota>("Quota"), kel::field<&BenchRecord::Logins>("Logins"),
                  kel::field<&BenchRecord::Shell>("Shell"), kel::field<&BenchRecord::Locked>("Locked"),
                  kel::field<&BenchRecord::Level>("Level"), kel::field<&BenchRecord::Height>("Height"),
                  kel::field<&BenchRecord::Weight>("Weight"), kel::field<&BenchRecord::Score>("Score"),
                  kel::field<&BenchRecord::Rate>("Rate"), kel::field<&BenchRecord::Load>("Load"),
                  kel::field<&BenchRecord::Share>("Share"), kel::field<&BenchRecord::Name>("Name"),
                  kel::field<&BenchRecord::Comment>("Comment"), kel::field<&BenchRecord::Home>("Home"),
                  kel::field<&BenchRecord::Group>("Group"), kel::field<&BenchRecord::Host>("Host"),
                  kel::field<&BenchRecord::Mail>("Mail"))

namespace {

std::string show(const xany &value) {
    if (value.getkind() == xany::String) return std::string(value.getstring().Str());
    if (value.getkind() == xany::Int) return std::to_string(static_cast<int>(value));
    char text[40];
    std::snprintf(text, sizeof text, "%g", value.getreal());
    return text;
}

}  // namespace

void add_ours_values(Suite &suite) {
    const auto ours = Library::Ours;
    suite.add("any/int", ours, "xany",
              [](benchmark::State &state) { copy_and_destroy(state, xany(xint{42})); });
    suite.add("any/real", ours, "xany",
              [](benchmark::State &state) { copy_and_destroy(state, xany(xreal{42.5})); });
    suite.add("any/string", ours, "xany",
              [](benchmark::State &state) { copy_and_destroy(state, xany(text_of(12).c_str())); });
    for (const char *name : {"any/object", "any/object-threads"})
        suite.add(name, ours, "xany", [](benchmark::State &state) {
            xrchandle<BenchRecord> record(kel::construct<BenchRecord>());
            copy_and_destroy(state, xany(record.get()));
        });
    add_strings<xstring>(suite, ours, "xstring",
                         [](const std::string &text) { return xstring(text.c_str()); });
    add_counts(
        suite, ours, "xrcattach", [] { return xrchandle<BenchRecord>(kel::construct<BenchRecord>()); },
        [](const xrchandle<BenchRecord> &record) {
            xrcattach(record.get());
            benchmark::ClobberMemory();
            xrcrelease(record.get());
            benchmark::ClobberMemory();
        });
    suite.add("field/index", ours, "getfield", [](benchmark::State &state) {
        xrchandle<BenchRecord> record(kel::construct<BenchRecord>());
        read_fields(
            state, [&](int index) { return record->getfield(index); }, show);
    });
    suite.add("field/name", ours, "lookupfield", [](benchmark::State &state) {
        xrchandle<BenchRecord> record(kel::construct<BenchRecord>());
        read_fields(
            state, [&](int index) { return record->lookupfield(field_names[index]); }, show);
    });
}

}  // namespace bench
