#include "runtime/spool.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <optional>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/free_space.h"
#include "platform/ownership.h"
#include "platform/paths.h"
#include "platform/safe_open.h"

#include "runtime/body_input.h"
#include "runtime/log.h"
#include "runtime/request.h"
#include "runtime/spool_parser.h"
#include "runtime/wait.h"

namespace {

constexpr std::int64_t mib = 1048576;
// Beyond this nothing can be stored anyway, and twice as much still fits into 64 bits.
constexpr std::int64_t length_max = std::int64_t{1} << 60;

struct spool_place {
    const char* path;
    int on_ramdisk;            // 1 or 0, as it is logged
    std::int64_t memory_need;  // MiB that must be free to receive an operating-system image
};

constexpr spool_place on_flash{paths::spool_flash, 0, 60};
constexpr spool_place on_ramdisk{paths::spool_ramdisk, 1, 75};

// All uploads use the same files, so they take turns. Whoever may open a file may lock it for as
// long as he likes, so it is one that only root opens. The kernel gives the lock back. None, with
// errno set, when there is no lock to be had.
unique_fd wait_for_turn() {
    unique_fd turn(
        ::open(paths::upload_turn, O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, S_IRUSR | S_IWUSR));
    while (turn && ::flock(turn.get(), LOCK_EX) != 0) {
        if (errno != EINTR) return {};
    }
    return turn;
}

// Removes the spool file on every way out.
struct spool_file_guard {
    const char* path;
    explicit spool_file_guard(const char* spool_path) : path(spool_path) {}
    ~spool_file_guard() { ::unlink(path); }
    spool_file_guard(const spool_file_guard&) = delete;
    spool_file_guard& operator=(const spool_file_guard&) = delete;
};

// Both figures in bytes; what does not fit counts as all there is.
std::int64_t to_bytes(std::int64_t size_mib) {
    return size_mib > length_max / mib * 4 ? length_max * 4 : size_mib * mib;
}

// What an upload's process left behind that was killed. Nobody else uses these while we have the
// turn.
void drop_leftovers() {
    for (const char* file : {paths::spool_flash, paths::spool_ramdisk, paths::os_image_new}) {
        ::unlink(file);
    }
}

std::int64_t measure_flash(std::int64_t need) {
    const std::int64_t free = free_flash_mib();
    if (to_bytes(free) >= need) return free;
    ::unlink(paths::os_image);
    return free_flash_mib();
}

std::optional<spool_place> choose_place(std::int64_t length) {
    const std::int64_t need = 2 * length;
    const std::int64_t flash = measure_flash(need);
    if (to_bytes(flash) >= need) return on_flash;
    if (to_bytes(free_ramdisk_mib()) > length && to_bytes(flash) > length) return on_ramdisk;
    wuic_log(log_error, "Current free flash space (%lld MB) is too low. System needs %lld MB",
             static_cast<long long>(flash), static_cast<long long>((need + mib - 1) / mib));
    return std::nullopt;
}

bool has_memory(const cgi* input, const spool_place& place) {
    const char* const uri = cgi_get_var(input, "REQUEST_URI");
    if (uri == nullptr || std::string_view{uri}.find(os_upload_page) == std::string_view::npos) {
        return true;
    }
    const std::int64_t free = free_memory_bytes();
    if (free >= place.memory_need * mib) return true;
    wuic_log(log_error, "Current free memory (%lld MB) is too low. System needs %lld MB",
             static_cast<long long>(free / mib), static_cast<long long>(place.memory_need));
    return false;
}

// Copies the body into the spool file. Returns 0 or cgi_read_error.
int receive(int spool, std::int64_t length, char* window, int on_ramdisk_flag) {
    const request_streams streams = request_current_streams();
    std::int64_t bytes_read = 0;
    std::int64_t bytes_written = 0;
    while (bytes_read < length) {
        const auto want = std::min(static_cast<std::int64_t>(body_chunk), length - bytes_read);
        const long got = streams_read_whole(streams, window, static_cast<std::size_t>(want));
        if (got <= 0) break;
        bytes_read += got;
        if (!write_whole(spool, window, static_cast<std::size_t>(got))) {
            wuic_log(log_error, "write error (%d) writing to post.data. usetmp:%d", errno,
                     on_ramdisk_flag);
            return cgi_read_error;
        }
        bytes_written += got;
    }
    if (bytes_read == length && bytes_written == length) return 0;
    wuic_log(log_error, "read size (%lld), write size (%lld) and actual size (%lld) mismatch",
             static_cast<long long>(bytes_read), static_cast<long long>(bytes_written),
             static_cast<long long>(length));
    return cgi_read_error;
}

// Everybody may plant a file below /tmp, and its owner could change what was received.
unique_fd open_spool(const char* path) {
    unique_fd spool = safe_open_for_writing(path, O_RDWR | O_TRUNC | O_SYNC, 0666);
    struct stat info = {};
    if (!spool || (::fstat(spool.get(), &info) == 0 && info.st_uid == ::geteuid())) return spool;
    errno = EACCES;
    return {};
}

int receive_and_parse(cgi* input, std::int64_t length, const spool_place& place, bool* has_image) {
    const malloc_text window{static_cast<char*>(std::malloc(body_chunk))};
    if (!window) return cgi_no_memory;
    const unique_fd spool = open_spool(place.path);
    if (!spool) {
        wuic_log(log_error, "open failed (%d) on post.data file. usetmp: %d", errno,
                 place.on_ramdisk);
        return cgi_read_error;
    }
    const spool_file_guard cleanup{place.path};
    if (const int error = receive(spool.get(), length, window.get(), place.on_ramdisk)) {
        return error;
    }
    if (client_has_left() || ::lseek(spool.get(), 0, SEEK_SET) != 0) return cgi_read_error;
    return spool_parse(input, spool.get(), window.get(), has_image);
}

}  // namespace

int spool_upload(cgi* input, std::int64_t length) {
    if (length > length_max) return cgi_too_long;
    received_upload& upload = request_current().upload;
    spool_drop_upload(upload);  // of an earlier parse, which would have us wait for ourselves
    if (client_has_left()) return cgi_read_error;
    upload.turn = wait_for_turn();
    if (!upload.turn) {
        wuic_log(log_error, "open failed (%d) on the lock of uploads.", errno);
        return cgi_read_error;
    }
    if (client_has_left()) {
        spool_drop_upload(upload);
        return cgi_read_error;
    }
    drop_leftovers();
    const auto place = choose_place(length);
    if (!place || !has_memory(input, *place)) {
        spool_drop_upload(upload);
        body_discard(length);
        return cgi_low_space;
    }
    const int result = receive_and_parse(input, length, *place, &upload.has_image);
    if (result != 0) spool_drop_upload(upload);
    return result;
}

bool spool_keep_image(received_upload& upload) {
    if (!upload.has_image) {
        spool_drop_upload(upload);
        return true;
    }
    const bool kept = !client_has_left() && ::rename(paths::os_image_new, paths::os_image) == 0;
    if (!kept) wuic_log(log_error, "rename failed (%d) on os_image file.", errno);
    spool_drop_upload(upload);
    return kept;
}

void spool_drop_upload(received_upload& upload) {
    if (!upload.turn) return;
    ::unlink(paths::os_image_new);
    upload.has_image = false;
    upload.turn.reset();
}
