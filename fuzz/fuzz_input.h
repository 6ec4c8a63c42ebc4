// What the fuzz targets share. A target is one source file that includes this and defines
// fuzz_one(); a broken property ends it as a crash does, so that libFuzzer keeps the input.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>

#include "runtime/cgi.h"
#include "runtime/request.h"

// Reads one input, as often as it is given; nothing may stay behind from call to call.
void fuzz_one(std::string_view data);

// The property `what` holds.
inline void expect(bool holds, const char* what) {
    if (holds) return;
    std::fprintf(stderr, "== property broken: %s\n", what);
    std::abort();
}

// For a target that writes to the program's fixed paths: those of the host are left alone.
inline void fuzz_require_sandbox() {
    if (std::getenv("SANDBOX_CHECKOUT") != nullptr) return;
    std::fputs("run this target by fuzz/run.sh, in the sandbox\n", stderr);
    std::_Exit(2);
}

// Takes an input apart. At its end every part is empty or 0.
struct fuzz_fields {
    std::string_view rest;

    std::uint8_t byte() {
        const auto bytes = take(1);
        return bytes.empty() ? std::uint8_t{0} : static_cast<std::uint8_t>(bytes[0]);
    }
    // Four bytes, the lowest first.
    std::uint32_t number() {
        std::uint32_t value = 0;
        for (unsigned shift = 0; shift < 32; shift += 8)
            value |= std::uint32_t{byte()} << shift;
        return value;
    }
    std::string_view take(std::size_t size) {
        const std::string_view part = rest.substr(0, size);
        rest.remove_prefix(part.size());
        return part;
    }
    // Up to the next `separator`, which is dropped.
    std::string_view field(char separator = '\n') {
        const std::string_view part = rest.substr(0, rest.find(separator));
        rest.remove_prefix(std::min(part.size() + 1, rest.size()));
        return part;
    }
};

// A copy on the heap of exactly the bytes, and `spare` writable ones: ASan sees what is read
// behind.
struct exact_bytes {
    std::size_t size;
    std::unique_ptr<char[]> bytes;
    explicit exact_bytes(std::string_view text, std::size_t spare = 0)
        : size(text.size()), bytes(new char[text.size() + spare]) {
        text.copy(bytes.get(), text.size());
    }
    [[nodiscard]] char* data() const { return bytes.get(); }
    [[nodiscard]] std::int32_t length() const { return static_cast<std::int32_t>(size); }
    [[nodiscard]] std::string_view view() const { return {bytes.get(), size}; }
};

// The same with a NUL behind it; the text ends at the first NUL within it.
struct exact_text : exact_bytes {
    explicit exact_text(std::string_view text) : exact_bytes(text.substr(0, text.find('\0')), 1) {
        bytes[size] = '\0';
    }
};

// The record of one request, as long as this lives.
struct fuzz_request {
    request_record record;
    cgi* const input = &record.input;
    // Sets a variable; its value ends at the first NUL.
    void set(const char* name, std::string_view value) const {
        expect(cgi_set_var(input, name, std::string(value).c_str()) == 0, "a variable is set");
    }
};

// NOLINTNEXTLINE(readability-identifier-naming,misc-definitions-in-headers): libFuzzer's entry
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz_one({reinterpret_cast<const char*>(data), size});
    return 0;
}
