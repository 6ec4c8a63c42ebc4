// What the program, as root, could do beyond its work, given up for the rest of the process.
//
// It answers requests with files, sockets and databases, and starts nothing but the date and the
// controller's version tool. So a request that takes the program over finds:
//   capabilities   only those by which root reaches files and semaphores of other users; programs
//                  that it starts, as root, get the ordinary ones for files, users and sockets
//   system calls   those that change the kernel, mounts, namespaces, keys or the memory of other
//                  processes are refused with EPERM, in programs that it starts, too; so are all
//                  calls of another architecture, so that a tool has to be of the program's own
//   memory         not to be dumped or read by other users' processes: it holds passwords
// User and group, file mode mask, resource limits and the right to start set-uid programs stay.
#pragma once

// Gives up all of that at once; there is no way back. Does nothing when the caller is not root, who
// then has nothing to give. Returns false, with errno set, when the kernel refuses a part; the
// others are given up all the same.
//
// REQUIRES: one thread; the user id is final.
[[nodiscard]] bool privileges_narrow();
