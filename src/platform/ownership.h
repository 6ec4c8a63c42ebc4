// Guards: whoever opens a thing holds one of these at once, and plain returns clean up.
// All are move-only; none may be null-dereferenced before it was checked.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <unistd.h>
#include <utility>

#include <libpq-fe.h>

template <auto Release>
struct releaser {
    template <class T>
    void operator()(T* p) const noexcept {
        static_cast<void>(Release(p));
    }
};

using db_conn = std::unique_ptr<PGconn, releaser<PQfinish>>;
using db_result = std::unique_ptr<PGresult, releaser<PQclear>>;
using malloc_text = std::unique_ptr<char, releaser<::free>>;
using stdio_file = std::unique_ptr<std::FILE, releaser<std::fclose>>;

// Owns a file descriptor; -1 when it owns none.
struct unique_fd {
    unique_fd() noexcept = default;
    explicit unique_fd(int descriptor) noexcept : fd(descriptor) {}
    unique_fd(unique_fd&& other) noexcept : fd(std::exchange(other.fd, -1)) {}
    unique_fd& operator=(unique_fd&& other) noexcept {
        if (this != &other) reset(std::exchange(other.fd, -1));
        return *this;
    }
    unique_fd(const unique_fd&) = delete;
    unique_fd& operator=(const unique_fd&) = delete;
    ~unique_fd() { reset(); }

    explicit operator bool() const noexcept { return fd >= 0; }
    int get() const noexcept { return fd; }
    int release() noexcept { return std::exchange(fd, -1); }
    // Closes what is held; errno is kept, since callers report the failure before the clean-up.
    void reset(int next = -1) noexcept;

  private:
    int fd = -1;
};
