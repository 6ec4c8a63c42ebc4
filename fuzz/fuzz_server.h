// A request as the HTTP server hands it over: its variables in the environment, its body on
// standard input. And what the targets that read forms share: a plain decoder.
#pragma once

#include <sys/mman.h>
#include <unistd.h>
#include <vector>

#include "fuzz_input.h"

// The environment consists of these variables as long as this lives. Values end at the first NUL.
struct fuzz_environment {
    std::vector<std::string> texts;
    std::vector<char*> pointers;
    char** const saved = environ;

    explicit fuzz_environment(
        std::initializer_list<std::pair<const char*, std::string>> variables) {
        for (const auto& [name, value] : variables)
            texts.push_back(name + ('=' + value));
        for (std::string& text : texts)
            pointers.push_back(text.data());
        pointers.push_back(nullptr);
        environ = pointers.data();
    }
    ~fuzz_environment() { environ = saved; }
    fuzz_environment(const fuzz_environment&) = delete;
    fuzz_environment& operator=(const fuzz_environment&) = delete;
};

// Standard input holds `body` from here on. The file is made once; a read ends where the body does,
// as it does with a closed pipe.
inline void fuzz_stdin(std::string_view body) {
    static const bool made = [] {
        const int file = memfd_create("body", 0);
        return dup2(file, STDIN_FILENO) == STDIN_FILENO && close(file) == 0;
    }();
    expect(made && ftruncate(STDIN_FILENO, 0) == 0 &&
               pwrite(STDIN_FILENO, body.data(), body.size(), 0) ==
                   static_cast<ssize_t>(body.size()) &&
               lseek(STDIN_FILENO, 0, SEEK_SET) == 0,
           "standard input can be filled");
}

inline std::size_t fuzz_stdin_read() {
    return static_cast<std::size_t>(lseek(STDIN_FILENO, 0, SEEK_CUR));
}

// Whoever ends with more descriptors open than it began with has lost one.
struct fuzz_descriptor_check {
    const int lowest = next();
    ~fuzz_descriptor_check() { expect(next() == lowest, "no descriptor is left open"); }
    static int next() {
        const int fd = dup(STDERR_FILENO);
        close(fd);
        return fd;
    }
};

// "%" and two digits are a byte, which nobody checks; beyond the end stand NULs.
inline std::string plain_url_decode(std::string_view text, bool plus = true) {
    const auto digit = [text](std::size_t at) {
        const char c = at < text.size() ? text[at] : '\0';
        if (c >= 'a' && c <= 'f') return c - 'a' + 10;
        if (c >= 'A' && c <= 'F') return c - 'A' + 10;
        return static_cast<unsigned char>(c) - '0';
    };
    std::string decoded;
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (text[at] == '%') {
            decoded += static_cast<char>(digit(at + 1) * 16 + digit(at + 2));
            at += 2;
        } else {
            decoded += plus && text[at] == '+' ? ' ' : text[at];
        }
    }
    return decoded;
}

inline std::string until_nul(std::string_view text) {
    return std::string(text.substr(0, text.find('\0')));
}

// The pieces of `text` between separators; at least one.
inline std::vector<std::string_view> plain_split(std::string_view text, char separator) {
    std::vector<std::string_view> pieces;
    for (std::size_t at = 0; at <= text.size();) {
        const std::size_t end = std::min(text.find(separator, at), text.size());
        pieces.push_back(text.substr(at, end - at));
        at = end + 1;
    }
    return pieces;
}

// A request that logs nothing: the log has tests of its own, and files slow a target down.
struct quiet_request : fuzz_request {
    quiet_request() { record.levels = {.web = -1, .wuic = -1}; }
};
