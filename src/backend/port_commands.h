// Handler that applies commands to ports of the controller.
#pragma once

#include "runtime/handler.h"

// The query string is "PORT,...;...?COMMAND;...": each command is run on each port, in the order in
// which they stand. A port is the letter "f" for Fast Ethernet or any other for Gigabit Ethernet,
// and its place, as in "g1/0". Only the pairs that failed are answered. A query of another form, or
// with more than 4,096 pairs, runs nothing and is answered with an error document. Returns 0, or
// -1 with the response empty when memory runs out.
request_handler execMultipleCommandsFromWeb;  // NOLINT(readability-identifier-naming): fixed name
