// A monitor file of any bytes: it is opened, read and caught up with, once whole and once as it grows, and a
// writer then goes on in it. Whatever the bytes are, values told together are those told one by one, a file
// that grew is read as one that was whole, and what a writer adds to an undamaged file is found again.
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include <kelstdmt/kel.h>
#include <kelstdmt/monlib.h>

static int reports = 0;

static const std::string &path() {
    static const struct scratch {
        scratch() {
            btkSetAbortHandler([](const char *, const char *, int) { ++reports; });
        }
        ~scratch() { std::filesystem::remove(path); }
        std::string path = (std::filesystem::temp_directory_path() /
                            ("kelstdmt_monitor_fuzz_" + std::to_string(btkRandomSeed())))
                               .string();
    } file;
    return file.path;
}

static void put(const std::uint8_t *bytes, std::size_t size, std::ios::openmode mode) {
    std::ofstream(path(), std::ios::binary | mode)
        .write(reinterpret_cast<const char *>(bytes), static_cast<std::streamsize>(size));
}

static void require(bool condition) {
    if (!condition) std::abort();
}

// Everything about the parameters as one text.
static std::string tell(monFile &file) {
    std::string all;
    const std::vector<xany> values = file.Values();
    require(values.size() == file.Parameters().size());
    for (std::size_t i = 0; i < values.size(); ++i) {
        monParam *parameter = file.Parameters()[i];
        require(values[i] == parameter->lookupfield("Value") || values[i].getkind() == xany::Real);
        all += std::string(parameter->gettypename()) + ' ' + parameter->getName().Str() + ' ' +
               std::to_string(values[i].hash()) + '\n';
    }
    return all;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size) {
    put(bytes, size, std::ios::trunc);
    std::unique_ptr<monFile> whole(monFile::Open(path().c_str()));
    if (!whole) return 0;
    reports = 0;
    const bool undamaged = whole->Refresh();
    require(whole->Refresh() == undamaged && reports == !undamaged);
    const std::string told = tell(*whole);

    for (std::size_t step : {std::size_t{1}, std::size_t{13}}) {
        std::size_t known = size / 2;
        put(bytes, known, std::ios::trunc);
        std::unique_ptr<monFile> growing(monFile::OpenReadOnly(path().c_str()));
        if (!growing) break;
        for (; known < size; known += std::min(step, size - known), step *= 2) {
            growing->Refresh();
            put(bytes + known, std::min(step, size - known), std::ios::app);
        }
        require(growing->Refresh() == undamaged && tell(*growing) == told);
    }
    put(bytes, size, std::ios::trunc);

    monIntParam *added = whole->Int("added to it");
    if (added) added->setValue(77);
    std::unique_ptr<monFile> again(monFile::OpenReadOnly(path().c_str()));
    require(again != nullptr);
    again->Refresh();
    monIntParam *found = again->Int("added to it");
    if (undamaged) require((added != nullptr) == (found != nullptr) && (!found || found->getValue() == 77));

    std::filesystem::resize_file(path(), size / 2);
    whole->Refresh();
    tell(*whole);
    std::unique_ptr<monFile> overwritten(monFile::Create(path().c_str(), "t"));
    if (monRealParam *made = overwritten->Real("made")) {
        made->setValue(1.5);
        again.reset(monFile::OpenReadOnly(path().c_str()));
        require(again->Refresh() && again->Real("made")->getValue() == 1.5);
    }
    return 0;
}
