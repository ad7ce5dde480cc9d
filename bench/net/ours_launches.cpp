// Ours: pcProcess, with pipes as its channels.
#include <kelstdmt/iolib.h>
#include <kelstdmt/kel.h>
#include <kelstdmt/proclib.h>

#include <memory>
#include <string>

#include "work.h"

namespace bench {
namespace {

int run_program() {
    const std::unique_ptr<pcProcess> process(
        pcProcess::Create(launched, nullptr, nullptr, nullptr, nullptr, false, false));
    std::unique_ptr<pcEvent>(process->ExitEvent())->Wait(INFINITE);
    return process->GetExitCode();
}

std::string read_program() {
    const std::string command = std::string(speaker) + " " + spoken;
    std::unique_ptr<ioPipe> pipe(ioPipe::Create());
    const std::unique_ptr<pcProcess> process(pcProcess::Create(
        command.c_str(), nullptr, nullptr, kel_pipe_access::WriteStream(*pipe), nullptr, false, false));
    std::string text;
    try {
        char bytes[4'096];
        for (;;)
            text.append(bytes, kel_pipe_access::ReadStream(*pipe)->ReadBytes(bytes, sizeof bytes));
    } catch (xthrowable *end) {
        const kel::caught hold(end);
    }
    std::unique_ptr<pcEvent>(process->ExitEvent())->Wait(INFINITE);
    return process->GetExitCode() == 0 ? text : "";
}

}  // namespace

void add_ours_launches(Suite &suite) {
    add_launch(suite, Library::Ours, "pcProcess", run_program);
    add_output(suite, Library::Ours, "pcProcess", read_program);
}

}  // namespace bench
