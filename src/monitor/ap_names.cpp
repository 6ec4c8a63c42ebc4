#include "monitor/ap_names.h"

#include <string_view>

#include "platform/mapped_file.h"
#include "platform/model_names.h"
#include "platform/paths.h"
#include "platform/vendor_names.h"

#include "runtime/bounded_writer.h"
#include "runtime/request.h"

namespace {

std::string_view table_of(mapped_file* kept, const char* path) {
    if (!*kept) *kept = map_file(path);
    return mapped_bytes(*kept);
}

const char* put(char* out, std::int32_t out_size, std::string_view name) {
    bounded_writer to = bounded_writer_text(out, out_size);
    bounded_writer_append(&to, name);
    bounded_writer_terminate(&to, out_size);
    return out;
}

}  // namespace

const char* oem_ap_user_visible_model(const char* code, char* out, std::int32_t out_size) {
    const std::string_view wanted = code != nullptr ? code : "";
    const std::string_view table = table_of(&request_current().ap_models, paths::ap_models);
    const std::string_view name = model_name_find(table, wanted);
    return put(out, out_size, name.empty() ? wanted : name);
}

const char* oui_to_vendor(const char* mac, char* out, std::int32_t out_size) {
    const std::string_view table = table_of(&request_current().vendors, paths::vendor_table);
    return put(out, out_size, vendor_name_find(table, mac));
}
