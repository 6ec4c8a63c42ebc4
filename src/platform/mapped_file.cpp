#include "platform/mapped_file.h"

#include <sys/mman.h>
#include <sys/stat.h>

#include "platform/ownership.h"
#include "platform/safe_open.h"

void file_unmapper::operator()(const char* bytes) const noexcept {
    ::munmap(const_cast<char*>(bytes), size);
}

mapped_file map_file(const char* path) {
    const unique_fd fd = safe_open_trusted(path);
    struct stat facts {};
    if (!fd || ::fstat(fd.get(), &facts) != 0 || facts.st_size <= 0) return {};
    const auto size = static_cast<std::size_t>(facts.st_size);
    void* const bytes = ::mmap(nullptr, size, PROT_READ, MAP_PRIVATE, fd.get(), 0);
    if (bytes == MAP_FAILED) return {};
    return {static_cast<const char*>(bytes), file_unmapper{size}};
}

std::string_view mapped_bytes(const mapped_file& file) {
    if (!file) return {};
    return {file.get(), file.get_deleter().size};
}
