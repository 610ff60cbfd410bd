#include "say.h"

#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <iomanip>
#include <sstream>

namespace {

double clockMs() {
    const auto time = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration<double, std::milli>(time).count();
}

double startMs() {
    const char* start = std::getenv("TAV_START");
    return start != nullptr ? std::strtod(start, nullptr) * 1e3 : clockMs();
}

std::string speaker;
const double start = startMs();

}  // namespace

void sayAs(const std::string& who) {
    speaker = who;
}

double now() {
    return clockMs() - start;
}

std::string printable(std::string text) {
    for (char& c : text) {
        c = c < ' ' || c > '~' ? '?' : c;
    }
    return text;
}

void say(const std::string& kind, const std::string& text, double tookMs) {
    std::ostringstream head;
    head << std::fixed << std::setprecision(1) << std::setw(8) << now() << "  " << std::left
         << std::setw(8) << speaker << "  " << std::setw(7) << kind << "  " << std::right
         << std::setw(6);
    if (tookMs >= 0) {
        head << tookMs;
    } else {
        head << "";
    }
    const std::string line = head.str() + "  " + printable(text) + "\n";
    // One write, so that lines of several processes and threads do not mix. Failures are ignored.
    if (write(STDERR_FILENO, line.data(), line.size()) < 0) {
        return;
    }
}
