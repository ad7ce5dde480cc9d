// Texts of times, and any second: what is read is a second whose calendar reads as the same second again, in
// a zone that changes its clock and in one that does not.
#include <kelstdmt/syslib.h>
#include <kelstdmt/timelib.h>

#include <climits>
#include <cstring>

#include "fuzzing.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const std::string text(reinterpret_cast<const char *>(data), size);
    double any = 0;
    if (size > 0) std::memcpy(&any, data, std::min(size, sizeof any));
    for (const char *zone : {"UTC", "EST5EDT,M3.2.0,M11.1.0"}) {
        sysPutEnv("TZ", zone);
        long seconds = 77, again = 0;
        if (tmString2Time(text.c_str(), &seconds)) {
            tmTime time(seconds);
            const xstring shown = tmTime::TimeToString(&time, "%m/%d/%Y %H:%M:%S");
            const bool is_first =
                tmString2Time(shown, &again) && (again == seconds || again == seconds - 3600);
            // Beyond what a double can count; or carried over to a year that needs another text than its
            // number.
            const bool is_other =
                time.getAbsTime() > 0x1p53 || time.getYear() < 100 - 1900 || time.getYear() > INT_MAX - 1900;
            fuzz::require(is_first || is_other, "reads differently:", shown.Str());
        } else {
            fuzz::require(seconds == 77, "a refusal changed the result:", text);
        }
        tmTime time(0);
        fuzz::require(time.setAbsTime(any) == time.getAbsTime(), "it is not kept:", any);
        fuzz::require(time.getDayOfMonth() >= 1 && time.getDayOfMonth() <= 31, "no such day:", any);
    }
    return 0;
}
