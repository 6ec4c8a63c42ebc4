#include "platform/model_names.h"

std::string_view model_name_find(std::string_view table, std::string_view code) {
    if (code.find_first_of("\t\n") != code.npos) return {};  // more than a code
    while (!table.empty()) {
        const bool found = table.starts_with(code) && table.substr(code.size()).starts_with('\t');
        const std::size_t end = table.find('\n');
        if (found) return table.substr(0, end).substr(code.size() + 1);
        table.remove_prefix(end == table.npos ? table.size() : end + 1);
    }
    return {};
}
