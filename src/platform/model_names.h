// What the hardware models of access points are called.
#pragma once

#include <string_view>

// The name that goes with a model code, empty when the table does not have it.
//   table  a line for each model: code, tab, name
// The name points into the table.
std::string_view model_name_find(std::string_view table, std::string_view code);
