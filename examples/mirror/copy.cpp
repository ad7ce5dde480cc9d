// The steps of a copy. Whatever ends it early stands in the monitor file, so that the follower hears of it,
// and in the record, whose entry "State" is never left at "complete" by a copy that is not.
#include "copy.h"

#include <iomanip>
#include <iostream>
#include <memory>
#include <sstream>
#include <stdexcept>

#include "progress.h"
#include "tree.h"

namespace {

std::string LastError() {
    return Error_GetText(Error_GetLast());
}

std::string Now() {
    const std::unique_ptr<tmTime> now(tmTime::CurrentTime());
    return std::string(tmTime::TimeToString(now.get(), "%Y-%m-%d %H:%M:%S"));
}

// Prints how long a step took.
class Clock {
public:
    friend std::ostream &operator<<(std::ostream &out, const Clock &clock) {
        std::ostringstream seconds;
        seconds << std::fixed << std::setprecision(2) << tmTime::RealTime() - clock.m_start;
        return out << seconds.str() << " s";
    }

private:
    double m_start = tmTime::RealTime();
};

// What the user has set, in the registry; made with what holds without settings on the first run.
class Settings {
public:
    static constexpr const char *key_name = "Examples\\Mirror";

    Settings() : m_root(regRegistry::User()) {
        if (m_root->Open()) m_key.reset(m_root->CreateSubkey(key_name));
        if (!m_key) throw std::runtime_error("cannot open the registry: " + LastError());
        if (!kel::is_text(m_key->GetStringValue("Links"))) m_key->SetValue("Links", "keep");
        if (kel::is_nil(m_key->GetBoolValue("Verify"))) m_key->SetValue("Verify", kel_true);
        const std::string links(m_key->GetStringValue("Links"));
        if (links != "keep" && links != "skip")
            throw std::runtime_error("the setting Links in the registry is keep or skip, not " + links);
        keep_links = links == "keep";
        verify = m_key->GetBoolValue("Verify") == kel_true;
        const int before = m_key->GetIntValue("Runs");
        runs = kel::is_nil(before) ? 0 : before;
        const xstring last = m_key->GetStringValue("LastRun");
        if (kel::is_text(last)) last_run = last.Str();
    }

    void Keep(const std::string &time) {
        m_key->SetValue("Runs", runs + 1);
        m_key->SetValue("LastRun", time.c_str());
    }

    bool keep_links = true, verify = true;
    int runs = 0;
    std::string last_run;

private:
    static constexpr unsigned char kel_true = 1;
    std::unique_ptr<regRegistry> m_root;
    std::unique_ptr<regKey> m_key;
};

struct Entry {
    const char *name;
    std::string value;
};

// One edit of the record: opened, changed and written as a whole. Answers what it did, a line an entry.
std::string Edit(const std::string &path, const std::vector<Entry> &entries) {
    ovkConfigFile record;
    if (!record.Open(path.c_str(), ovkConfigFile::ReadWrite))
        throw std::runtime_error("cannot open " + Shown(path) + ": " + LastError());
    std::string done;
    for (const auto &[name, value] : entries) {
        const xstring before = record.GetValue(name);
        if (!record.SetValue(name, value.c_str()))
            throw std::runtime_error("cannot keep \"" + value + "\" in " + Shown(path));
        done += std::string("   ") + name + ": " + value;
        if (kel::is_text(before) && before.Str() != value) done += " (was " + std::string(before) + ")";
        done += '\n';
    }
    if (!record.Close()) throw std::runtime_error("cannot write " + Shown(path) + ": " + LastError());
    return done;
}

void Steps(const Job &job, const std::string &record, Progress &progress) {
    Settings settings;
    std::cout << "1. Settings from the registry, " << Settings::key_name << ": links are "
              << (settings.keep_links ? "kept" : "left out") << ", files are "
              << (settings.verify ? "verified" : "not verified") << "\n   This is run " << settings.runs + 1;
    if (!settings.last_run.empty()) std::cout << ", the last was on " << settings.last_run;
    std::cout << std::endl;

    const Clock counting;
    progress.Begin("counting", 0, 0);
    const Tree tree = ListTree(job.from);
    std::cout << "2. Counted " << Shown(job.from) << ": " << Counted(tree.files, "file") << ", "
              << Counted(tree.folders, "folder") << ", " << Counted(tree.links, "link") << ", "
              << Counted(tree.bytes, "byte") << " (" << counting << ')' << std::endl;
    Edit(record, {{"State", "copying since " + Now()}});

    const Clock copying;
    progress.Begin("copying", tree.files, tree.bytes);
    kel::copy_tree(job.from.c_str(), job.to.c_str(), job.existing, settings.keep_links ? fsNewLink : fsIgnore,
                   fsRecursive, [&](const kel::file_progress &at) {
                       progress.Reach(at.path ? at.path : "", at.files, at.bytes);
                   });
    std::cout << "3. Copied to " << Shown(job.to) << " (" << copying << ')' << std::endl;

    if (settings.verify) {
        const Clock verifying;
        progress.Begin("verifying", tree.files, tree.bytes);
        const std::string differs = Difference(tree, job.from, job.to, settings.keep_links, progress);
        if (!differs.empty()) throw std::runtime_error("the copy differs: " + Shown(differs));
        std::cout << "4. Verified: every file has its size and checksum (" << verifying << ')' << std::endl;
    } else {
        std::cout << "4. Not verified: the setting Verify is off" << std::endl;
    }

    const std::string time = Now();
    const std::string edited = Edit(record, {{"From", Shown(job.from)},
                                             {"To", Shown(job.to)},
                                             {"Copied", Counted(tree.files, "file")},
                                             {"Size", Counted(tree.bytes, "byte")},
                                             {"State", "complete since " + time}});
    std::cout << "5. Edited " << Shown(record) << "\n" << edited << std::flush;
    settings.Keep(time);
    std::cout << "6. Kept in the registry that this was run " << settings.runs + 1 << std::endl;
}

}  // namespace

bool Copy(const Job &job) {
    if (!fshIsDirectory(job.state.c_str())) fsCreateDir(job.state.c_str(), fsRecursive);
    const std::string record = Below(job.state, record_name);
    Progress progress(Below(job.state, progress_name));
    try {
        Steps(job, record, progress);
    } catch (...) {
        const std::string reason = WhatHappened();
        std::cerr << "mirror: " << reason << '\n';
        Edit(record, {{"State", "failed: " + reason}});
        progress.End(reason);
        return false;
    }
    progress.End();
    return true;
}

std::string WhatHappened() {
    const std::string last_error = LastError();
    try {
        throw;
    } catch (xthrowable *thrown) {
        const kel::caught error(thrown);
        const auto *failure = error.as<fsXException>();
        std::string text = error.text();
        if (!failure) return text;
        if (kel::is_text(failure->getPath())) text += ": " + Shown(failure->getPath().Str());
        // The others say all that there is to say.
        return error.is<fsXIOError>() || error.is<fsXOther>() ? text + ": " + last_error : text;
    } catch (const std::exception &error) {
        return error.what();
    }
}
