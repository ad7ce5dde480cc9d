#include "progress.h"

#include <stdexcept>

Progress::Progress(const std::string &path) {
    if (fshExists(path.c_str())) fsRemove(path.c_str(), fsSimple);
    m_file.reset(monFile::Create(path.c_str(), published::title));
    if (!m_file)
        throw std::runtime_error("cannot make the monitor file " + path + ": " +
                                 Error_GetText(Error_GetLast()));
    m_files = m_file->Int(published::files);
    m_all_files = m_file->Int(published::all_files);
    m_bytes = m_file->Real(published::bytes);
    m_all_bytes = m_file->Real(published::all_bytes);
    m_name = m_file->String(published::file, published::file_size);
    m_failure = m_file->String(published::failure, published::failure_size);
    m_ended = m_file->Bool(published::ended);
    m_phase = m_file->String(published::phase, published::phase_size);
    m_ended->setValue(false);
    Begin("starting", 0, 0);
}

void Progress::Begin(const char *phase, double all_files, double all_bytes) {
    Reach("", 0, 0);
    m_all_files->setValue(static_cast<int>(all_files));
    m_all_bytes->setValue(all_bytes);
    m_phase->setValue(phase);  // from here on the numbers are its own
}

void Progress::Reach(const std::string &file, double files, double bytes) {
    m_name->setValue(file.substr(0, published::file_size).c_str());
    m_files->setValue(static_cast<int>(files));
    m_bytes->setValue(bytes);
}

void Progress::End(const std::string &failure) {
    m_failure->setValue(failure.substr(0, published::failure_size).c_str());
    m_ended->setValue(true);
}

std::string Counted(double number) {
    std::string digits = std::to_string(static_cast<long long>(number));
    for (std::size_t at = digits.size(); at > 3;)
        digits.insert(at -= 3, 1, ',');
    return digits;
}
std::string Counted(double number, const char *unit) {
    return Counted(number) + ' ' + unit + (number == 1 ? "" : "s");
}

std::string Shown(const std::string &path) {
    return btkHostPath(path.c_str());
}
