// A monitor file of any bytes: it is opened, read and caught up with, once whole and once as it grows, and a
// writer then goes on in it. Whatever the bytes are, values told together are those told one by one, a file
// that grew is read as one that was whole, and what a writer adds to an undamaged file is found again.
#include <kelstdmt/kel.h>
#include <kelstdmt/monlib.h>

#include <memory>

#include "fuzzing.h"

namespace {

using fuzz::put, fuzz::require;

using Holder = std::unique_ptr<monFile>;

int reports = 0;

// Everything about the parameters as one text.
std::string tell(monFile &file) {
    std::string all;
    const std::vector<xany> values = file.Values();
    require(values.size() == file.Parameters().size(), "another number of values");
    for (std::size_t i = 0; i < values.size(); ++i) {
        monParam *parameter = file.Parameters()[i];
        require(values[i] == parameter->lookupfield("Value") || values[i].getkind() == xany::Real,
                "another value of", parameter->getName().Str());
        all += parameter->getName().Str();
        all += ' ' + std::to_string(values[i].hash()) + '\n';
    }
    return all;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    btkSetAbortHandler([](const char *, const char *, int) { ++reports; });
    static const fuzz::Folder folder;
    const std::string path = folder.path / "f";
    const std::string_view bytes = fuzz::Input(data, size).rest;
    put(path, bytes);
    const Holder whole(monFile::Open(path.c_str()));
    if (!whole) return 0;
    reports = 0;
    const bool undamaged = whole->Refresh();
    require(whole->Refresh() == undamaged && reports == !undamaged, "damage is reported once");
    const std::string told = tell(*whole);

    std::size_t known = size / 2;
    put(path, bytes.substr(0, known));
    if (const Holder growing(monFile::OpenReadOnly(path.c_str())); growing) {
        for (std::size_t step = 1; known < size; known += step, step *= 2) {
            growing->Refresh();
            put(path, bytes.substr(known, step), std::ios::app);
        }
        require(growing->Refresh() == undamaged && tell(*growing) == told, "it grew to another file");
    }
    put(path, bytes);

    if (monRealParam *added = whole->Real("added to it"); added && undamaged) {
        added->setValue(1.5);
        const Holder again(monFile::OpenReadOnly(path.c_str()));
        require(again->Refresh() && again->Real("added to it")->getValue() == 1.5,
                "what was added is not there");
    }
    std::filesystem::resize_file(path, size / 2);
    whole->Refresh();
    tell(*whole);
    const Holder over(monFile::Create(path.c_str(), "t"));
    require(over && over->Refresh(), "nothing over a broken file");
    return 0;
}
