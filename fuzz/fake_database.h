// A database server inside the target, in the place of libpq: it keeps every statement that it is
// sent, with the way in which it would read literals then, and answers as it is told.
#pragma once

#include <string>
#include <string_view>
#include <vector>

struct sent_statement {
    std::string text;
    bool reads_backslashes;
};

struct fake_database {
    int rows = 0;      // how many a SELECT yields; its columns are `cell`, `other` by turns
    std::string cell;  // also the text of an error; a count is 3
    std::string other;
    int refused = 0;             // the statement that is refused, the first being 1; 0: none
    bool breaks_off = false;     // every SELECT ends in an error behind its rows
    bool can_be_settled = true;  // the setting of literals may be changed
    std::vector<sent_statement> sent;
    bool reads_backslashes = true;
    bool in_transaction = false;
};

// What every connection leads to.
fake_database& the_fake_database();
