#include "failure.h"

#include <iostream>
#include <mutex>
#include <utility>

#include <kelstdmt/filelib_exceptions.h>
#include <kelstdmt/vumrt.h>
#include <kelstdmt/xtypes.h>

#include "progress.h"
#include "text.h"

namespace tool {

namespace {

struct {
    std::mutex lock;
    bool kept = false, any = false;
    std::vector<std::string> messages;
} reports;

void Report(const char *message, const char *, int) {
    std::string text = message ? message : "internal error";
    std::lock_guard held(reports.lock);
    reports.any = true;
    if (reports.kept) {
        reports.messages.push_back(std::move(text));
    } else {
        Complain(text);
    }
}

}  // namespace

static std::string Quoted(const std::string &path) {
    return path.empty() ? "\"\"" : path;
}

Failure LastErrorFailure(std::string_view what, std::string_view path) {
    std::string text = std::string(what) + ": " + Quoted(Printable(path));
    if (int error = Error_GetLast()) text += std::string(": ") + Error_GetText(error);
    return Failure(text);
}

void Complain(std::string_view text) {
    Progress::WipeAll();
    std::cout.flush();
    std::cerr << CommandName() << ": " << text << std::endl;
}

void ListenToReports() {
    btkSetAbortHandler(Report);
}

Reports::Reports() {
    std::lock_guard held(reports.lock);
    reports.kept = true;
}

Reports::~Reports() {
    std::lock_guard held(reports.lock);
    reports.kept = false;
    reports.messages.clear();
}

std::vector<std::string> Reports::Take() {
    std::lock_guard held(reports.lock);
    return std::exchange(reports.messages, {});
}

bool AnythingReported() {
    std::lock_guard held(reports.lock);
    return reports.any;
}

std::string Explained(const kel::caught &error) {
    int last_error = Error_GetLast();
    std::string text = error.text();
    if (const fsXException *file_error = error.as<fsXException>()) {
        constexpr int in_use = 32;
        bool vague = error.is<fsXOther>() || error.is<fsXIOError>() || error.is<fsXInvalidPath>();
        if (kel::is_text(file_error->getPath())) text += ": " + Quoted(PrintablePath(file_error->getPath()));
        if (last_error == in_use && error.is<fsXInvalidPath>()) {
            text += ": A copy onto or into itself, or a link that leads in a circle.";
        } else if (vague && last_error) {
            text += std::string(": ") + Error_GetText(last_error);
        }
    }
    return text;
}

}  // namespace tool
