// Whoever follows a pass line by line: a program that shows what a log comes to. The monitor itself has no need of it.
#ifndef VKEVMON_PASS_FOLLOWER_H
#define VKEVMON_PASS_FOLLOWER_H

#include <cstdint>

#include "vkevmon/pass_lines.h"

// Asks the host who follows the pass that begins, if anybody does.
void AskWhoFollows();

// Tells whoever follows how far the pass has come.
//   checked  the line that was checked just now; null: there was none, since only repeats have been read
//   times    occurrences that it stands for
//   repeats  lines of the file so far that are repeats
// False: the pass is given up.
bool TellFollower(int slot, const PassLine *checked, int times, int64_t repeats);

// Tells the host of the part of the open log that was read; see LogPart.
void TellPart(int slot, int64_t first, int64_t last_read, int64_t last);
// Tells it that the slot starts afresh behind this line of the open log.
void TellStartAfresh(int slot, int64_t last);

#endif // VKEVMON_PASS_FOLLOWER_H
