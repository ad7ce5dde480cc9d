// The second process: it looks at the monitor file ten times a second. A record that the writer has not
// finished is simply not there yet, so every value is asked for by its name each time.
#include <chrono>
#include <cmath>
#include <iostream>
#include <thread>

#include "progress.h"

namespace {

constexpr auto look_every = std::chrono::milliseconds(100);

struct Values {
    std::string phase, file, failure;
    int files = 0, all_files = 0;
    double bytes = 0, all_bytes = 0;
    bool ended = false;

    bool operator==(const Values &) const = default;

    int Tenths() const { return all_bytes > 0 ? static_cast<int>(10 * bytes / all_bytes) : 0; }
};

std::string Text(monStringParam *parameter) {
    return std::string(kel::view(parameter ? parameter->getValue() : xstring()));
}
int Number(monIntParam *parameter) {
    return parameter ? parameter->getValue() : 0;
}
double Number(monRealParam *parameter) {
    return parameter ? parameter->getValue() : 0;
}

Values Read(monFile &file) {
    Values values;
    monBoolParam *ended = file.Bool(published::ended);
    values.ended = ended && ended->getValue() == 1;
    values.phase = Text(file.String(published::phase, published::phase_size));
    values.file = Text(file.String(published::file, published::file_size));
    values.failure = Text(file.String(published::failure, published::failure_size));
    values.files = Number(file.Int(published::files));
    values.all_files = Number(file.Int(published::all_files));
    values.bytes = Number(file.Real(published::bytes));
    values.all_bytes = Number(file.Real(published::all_bytes));
    return values;
}

void Print(const Values &values) {
    std::cout << values.phase;
    if (values.all_files > 0)
        std::cout << ": " << 10 * values.Tenths() << "%, " << Counted(values.files) << " of "
                  << Counted(values.all_files, "file");
    if (!values.file.empty()) std::cout << ", at " << Shown(values.file);
    std::cout << std::endl;
}

}  // namespace

bool Follow(const std::string &path, int patience) {
    const double limit = patience;
    double changed = tmTime::RealTime();
    std::unique_ptr<monFile> file;
    Values shown, seen;
    std::cout << "waiting for " << path << std::endl;
    for (;; std::this_thread::sleep_for(look_every)) {
        if (!file) file.reset(fshIsFile(path.c_str()) ? monFile::OpenReadOnly(path.c_str()) : nullptr);
        const Values now = file ? Read(*file) : Values();
        if (now != seen) changed = tmTime::RealTime();
        if (!now.phase.empty() && (now.phase != shown.phase || now.Tenths() > shown.Tenths())) {
            Print(now);
            shown = now;
        }
        seen = now;
        if (now.ended) break;
        if (tmTime::RealTime() - changed > limit) {
            std::cerr << "mirror: no news in " << path << " for " << patience << " seconds\n";
            return false;
        }
    }
    if (!seen.failure.empty()) {
        std::cout << "it failed: " << seen.failure << std::endl;
        return false;
    }
    std::cout << "it is done" << std::endl;
    return true;
}
