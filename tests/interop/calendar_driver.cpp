// Reads "ZONE MONTH/DAY/YEAR HOUR:MINUTE:SECOND" from each line and writes the second that it is, and how
// that second reads again.
#include <cstdlib>
#include <iostream>
#include <memory>
#include <string>

#include <kelstdmt/syslib.h>
#include <kelstdmt/timelib.h>

int main() {
    for (std::string zone, text; std::cin >> zone && std::getline(std::cin, text);) {
        sysPutEnv("TZ", zone.c_str());
        const std::unique_ptr<tmTime> time(tmTime::TimeFromString(text.c_str(), nullptr));
        std::cout << static_cast<long long>(time->getAbsTime()) << ' '
                  << tmTime::TimeToString(time.get(), "%m/%d/%Y %H:%M:%S") << '\n';
    }
}
