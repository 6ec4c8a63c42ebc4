// Replies to measure with.
#pragma once

#include <cstddef>
#include <string>

// A reply of `size` bytes or a row more, in UTF-8: an error text, some named values, and as many
// access points as it takes, in tables of up to 1,000. Always the same one for a size. Its texts
// hold references and non-ASCII letters; some cells are empty, blank or CDATA sections.
std::string reply_document(std::size_t size);
