// Texts of times, and any second: what is read is a second whose calendar reads as the same second again, in
// a zone that changes its clock and in one that does not.
#include <kelstdmt/syslib.h>
#include <kelstdmt/timelib.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

void require(bool holds, const char *what, const char *text) {
    if (holds) return;
    std::fprintf(stderr, "%s: \"%s\"\n", what, text);
    std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char *data, std::size_t size) {
    for (const char *zone : {"UTC", "EST5EDT,M3.2.0,M11.1.0"}) {
        sysPutEnv("TZ", zone);
        const std::string text(reinterpret_cast<const char *>(data), size);
        long seconds = 77;
        if (tmString2Time(text.c_str(), &seconds)) {
            tmTime time(seconds);
            const xstring shown = tmTime::TimeToString(&time, "%m/%d/%Y %H:%M:%S");
            long again = 0;
            const bool first_of_two =
                tmString2Time(shown, &again) && (again == seconds || again == seconds - 3600);
            const bool rounded = time.getAbsTime() > 0x1p53;  // more than a double can count
            // Carried over, a year may need another text than its number.
            const bool other_text = time.getYear() < 100 - 1900 || time.getYear() > INT_MAX - 1900;
            require(first_of_two || other_text || rounded, "it reads differently", shown);
        } else {
            require(seconds == 77, "a refusal changed the result", text.c_str());
        }
        double any = 0;
        if (size > 0) std::memcpy(&any, data, std::min(size, sizeof any));
        tmTime time(0);
        require(time.setAbsTime(any) == time.getAbsTime(), "it is not kept", "");
        const bool in_range = time.getMonth() >= 1 && time.getMonth() <= 12 && time.getDayOfMonth() >= 1 &&
                              time.getDayOfMonth() <= 31 && time.getHour() <= 23 && time.getDayOfWeek() <= 6;
        require(in_range, "no such day", "");
    }
    return 0;
}
