// All that the library declares: every descriptor that it offers tells of itself in one way, and every
// exception can be made and thrown by callers, with its fields.
#include <dlfcn.h>

#include <fstream>
#include <functional>
#include <set>

#include <kelstdmt/kelstdmt.h>

#include "observing.h"

namespace {

std::vector<std::string> declared_names() {
    std::vector<std::string> names;
    std::ifstream list(KELSTDMT_SOURCE_DIR "/packaging/symbols/libkelstdmt.txt");
    const std::string begin = "xrtti_get_p_";
    for (std::string line; std::getline(list, line);)
        if (line.starts_with(begin))
            names.push_back(line.substr(begin.size(), line.find('(') - begin.size()));
    return names;
}

brtti *descriptor_of(const std::string &name) {
    const std::string function = "xrtti_get_p_" + name;
    void *found = ::dlsym(RTLD_DEFAULT, ("_Z" + std::to_string(function.size()) + function + "v").c_str());
    return found ? reinterpret_cast<xrtti *(*)()>(found)() : nullptr;
}

// What hinders callers from walking through values of the type.
std::string flaws_of(brtti &type) {
    std::string flaws;
    std::set<std::string> names;
    const auto expect_name = [&](const xstring &name) {
        if (text(name).empty() || name.IsNull() || !names.insert(text(name)).second)
            flaws += " name " + text(name);
    };
    const int kinds = type.isenum() + type.isstruct() + type.isarray() + type.issequence() +
                      type.isdictionary() + type.isunion();
    if (kinds != 1) flaws += " kinds";
    if (type.isenum())
        for (int i = 0; i < type.getnenumvalues(); ++i)
            expect_name(type.getenumvaluebyindex(i));
    if (type.isstruct()) {
        for (int i = 0; i < type.getnfields(); ++i) {
            expect_name(type.getfieldname(i));
            if (!type.getfieldtype(i) || type.getfieldtype(i)->gettypename().IsNull())
                flaws += " type of field";
        }
        for (int i = 0; i < type.getnparents(); ++i)
            if (!type.getparenttype(i) || !type.iskindof(type.getparenttype(i))) flaws += " parent";
    }
    if (type.issequence() && !type.getseqtype()) flaws += " elements";
    if (type.isdictionary() && !type.getdicttype()) flaws += " elements";
    return flaws;
}

// `fsXSignal` is declared as `filelib::XSignal`.
TEST(Declared, TypesTellOfThemselves) {
    const std::vector<std::string> names = declared_names();
    ASSERT_GT(names.size(), 100U);
    std::set<std::string> declared;
    for (const std::string &name : names) {
        brtti *type = descriptor_of(name);
        ASSERT_TRUE(type) << name;
        const std::string told = text(type->gettypename());
        EXPECT_TRUE(declared.insert(told).second) << told << " is declared twice";
        const std::size_t colons = told.find("::");
        EXPECT_TRUE(colons == std::string::npos || name.ends_with(told.substr(colons + 2)))
            << told << " of " << name;
        EXPECT_EQ(flaws_of(*type), "") << name;
    }
}

struct thrown_one {
    std::function<void()> raise;
    std::string printed;
};

// Takes the description and the function in which it arose behind the fields of its own.
template <class X, class... Fields>
thrown_one extern_one(const std::string &name, const std::string &own, Fields... fields) {
    return {[=] { X::Throw(fields..., "d", xrchandle<kelXFunc>(kel::construct<kelXFunc>("f")).get()); },
            name + " { Description: \"d\"; Func: kellib::XFunc { Name: \"f\"; Args: kellib::XArgs { }; }; " +
                own + "}"};
}

TEST(Declared, ExceptionsAreThrownByCallersToo) {
    static xauto<nmsRecord> record(7u);
    static xauto<tmTime> time(0L);
    const std::string printed_record = kel::printed(record, true).str(),
                      printed_time = kel::printed(time, true).str();
    const thrown_one rows[] = {
        extern_one<fsXQuotaExhausted>("filelib::XQuotaExhausted", "Path: \"p\"; ", "p"),
        extern_one<nmsXException>("nmsclib::XException", ""),
        extern_one<nmsXCantConnectLocal>("nmsclib::XCantConnectLocal", ""),
        extern_one<nmsXCantConnectByName>("nmsclib::XCantConnectByName", "ServerName: \"s\"; ", "s"),
        extern_one<nmsXCantRegisterRecord>("nmsclib::XCantRegisterRecord", "Record: " + printed_record + "; ",
                                           &record),
        extern_one<nmsXCantDelete>("nmsclib::XCantDelete", "Template: " + printed_record + "; ", &record),
        extern_one<nmsXCantQuery>("nmsclib::XCantQuery", "Template: nil; ", nullptr),
        extern_one<nmsXCantShutdown>("nmsclib::XCantShutdown", ""),
        extern_one<nmsXCantGetVersion>("nmsclib::XCantGetVersion", ""),
        extern_one<strXNested>("strlib::XNested", ""),
        extern_one<sysXException>("syslib::XException", ""),
        extern_one<sysXCantGetHostName>("syslib::XCantGetHostName", ""),
        extern_one<sysXCantGetUserName>("syslib::XCantGetUserName", ""),
        extern_one<sysXCantPutEnv>("syslib::XCantPutEnv", "Var: \"v\"; ", "v"),
        extern_one<tmXException>("timelib::XException", ""),
        extern_one<tmXInvalTimeString>("timelib::XInvalTimeString", "InvalString: \"t\"; Format: \"%c\"; ",
                                       "t", "%c"),
        extern_one<tmXCantMakeTime>("timelib::XCantMakeTime",
                                    "Year: 1; Month: 2; DayOfMonth: 3; Hour: 4; Minute: 5; Second: 6; ", 1, 2,
                                    3, 4, 5, 6),
        extern_one<tmXCantMakeTimeString>("timelib::XCantMakeTimeString",
                                          "Time: " + printed_time + "; Format: \"%c\"; ", &time, "%c"),
        {[] { pcXException::Throw(); }, "proclib::XException { Msg: \"Process manipulation error\"; }"},
        {[] { pcXProcess::Throw(nullptr); },
         "proclib::XProcess { Msg: \"Process manipulation error\"; Process: nil; }"},
        {[] { rshXException::Throw(rshNoNameService); },
         "rshlib::XException { Error: rshNoNameService; Msg: \"Name Server not found\"; }"},
        {[] { rshXServer::Throw(rshDaemonError); },
         "rshlib::XServer { Error: rshDaemonError; Msg: \"Remote process launching error\"; }"},
        {[] { rshXProcess::Throw(rshDaemonError, pcBadWorkDir, "m"); },
         "rshlib::XProcess { Error: rshDaemonError; Msg: \"m\"; CreateError: pcBadWorkDir; }"},
        {[] { kelhThrowInvalidArrayIndex("t", 1, 2); },
         "kellib::XInvalidArrayIndex { Description: \"Array index is out of range\"; TypeName: \"t\"; "
         "Dimension: 1; Index: 2; }"},
        {[] { kelXNotClassType::Throw("t"); },
         "kellib::XNotClassType { Description: \"Not a class type\"; TypeName: \"t\"; }"},
        {[] { kelXUninitDispMethod::Throw(1, "m"); },
         "kellib::XUninitDispMethod { Description: \"Uninitialized dispatched method.\"; Object: 1; "
         "MethodName: \"m\"; }"},
        {[] { xportXMsgStringTooLong::Throw("m"); },
         "keljava::XMsgStringTooLong { Description: \"Message too long\"; Msg: \"m\"; }"},
        {[] { xportXNullInNonOptArg::Throw("n"); },
         "keljava::XNullInNonOptArg { Description: \"Null passed to non optional parameter argument\"; "
         "ParamName: \"n\"; }"},
    };
    for (const thrown_one &row : rows) {
        try {
            row.raise();
            ADD_FAILURE() << "threw nothing: " << row.printed;
        } catch (xthrowable *flight) {
            const kel::caught held(flight);
            EXPECT_EQ(kel::printed(flight, true).str(), row.printed);
        }
    }
}

// Texts that neither give nor take.
struct Mute : xncstr {};

TEST(Declared, OperationsThatAreNotProvidedAreReported) {
    strSegments segments;
    xauto<nmsRecord> record(0u);
    dsArray<int> array;
    Mute mute;
    int value = 0;
    const std::pair<std::function<bool()>, std::string> rows[] = {
        {[] { return ioStream::setStdin(nullptr), false; }, "- (iolibsrc/xiolib)"},
        {[] { return ioStream::setStdout(nullptr), false; }, "- (iolibsrc/xiolib)"},
        {[] { return ioStream::setStderr(nullptr), false; }, "- (iolibsrc/xiolib)"},
        {[&] { return segments.insert(0, nullptr), false; },
         "strSegments::insert is not provided. (strlibsrc/xstrlib)"},
        {[&] { return segments.insertseq(0, nullptr), false; },
         "strSegments::insertseq is not provided. (strlibsrc/xstrlib)"},
        {[&] { return segments.removerange(0, 1), false; },
         "strSegments::removerange is not provided. (strlibsrc/xstrlib)"},
        {[&] { return record.Clear(), false; }, "nmsRecord::Clear not implemented. (srcnmscm/recnms)"},
        {[&] { return mute.Str() != nullptr; }, "- (strlibsrc/xstring)"},
        {[&] { return mute.Set(static_cast<const unsigned short *>(nullptr)), false; },
         "- (strlibsrc/xstring)"},
        {[&] { return array.dsDataMap::Add(0, 1); }, "dsDataMap::Add () (containers/dsarray)"},
        {[&] { return array.dsDataMap::Remove(0); }, "dsDataMap::Remove () (containers/dsarray)"},
        {[&] { return array.dsDataMap::Find(0, value); }, "dsDataMap::Find () (containers/dsarray)"},
        {[] { return dsIter<int>().Current() != 0; }, "dsIter::Current (containers/dsiter)"},
        {[] { return dsIter<int>().Reproduce() != nullptr; }, "dsIter::Reproduce (containers/dsiter)"},
    };
    internal_errors errors;
    for (const auto &[call, report] : rows) {
        EXPECT_FALSE(call()) << report;
        EXPECT_EQ(errors.take(), report);
    }
}

}  // namespace
