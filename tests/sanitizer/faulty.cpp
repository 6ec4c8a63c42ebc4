// A CGI program with faults on purpose, installed beside the real one in a sanitized test run: it
// shows that a fault behind the HTTP server leaves a report. The query names the fault.
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

namespace {

volatile int sink = 0;
void* volatile lost = nullptr;

void overrun() {
    const auto length = static_cast<std::size_t>(getpid() % 8 + 1);
    auto* block = static_cast<unsigned char*>(std::malloc(length));
    if (block == nullptr) return;
    std::memset(block, 0, length);
    sink = block[length];
    std::free(block);
}

void overflow() {
    int most = INT_MAX;
    sink = most + (getpid() > 0 ? 1 : 0);
}

void leak() {
    lost = std::malloc(100);
    lost = nullptr;
}

}  // namespace

int main() {
    if (setuid(0) != 0) return 1;  // as the program under test does
    const char* fault = std::getenv("QUERY_STRING");
    std::puts("Content-Type: text/plain\r\n\r\nfaulty\r");
    if (fault == nullptr) return 0;
    if (std::strcmp(fault, "overrun=1") == 0) overrun();
    if (std::strcmp(fault, "overflow=1") == 0) overflow();
    if (std::strcmp(fault, "leak=1") == 0) leak();
    return 0;
}
