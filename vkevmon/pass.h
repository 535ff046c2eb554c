// One pass over the monitored logs.
//
// A slot goes through these states in a pass; every failure leads to the end of the slot, never of
// the pass:
//
//   no name            -> end                no customer file is set
//   no resume point    -> recorded           CheckSyslog starts afresh from the end of the live file
//   file found         -> positioned         GotoPos, in the file that holds the resume point
//   positioned         -> read               every new line of the file, repeats folded
//   read               -> stored             position and text of the last line checked
//   stored             -> next newer file    its head line and "no position" are stored, it is read
//                                            whole
//   live file stored   -> end                the end time of the scan is stored
//
// When a rotation has moved a name to another file since CheckSyslog looked, and there are backups, the slot
// goes back to CheckSyslog, at most kMostLooksAgain times.
#ifndef VKEVMON_PASS_H
#define VKEVMON_PASS_H

#pragma GCC visibility push(default)
extern "C" {

// Reads every line written to the system log and the customer file since the last pass, across
// rotations, hands each to CheckLine, and stores how far it came. The result has no meaning.
int WatchSyslogMain(void);

} // extern "C"
#pragma GCC visibility pop

#endif // VKEVMON_PASS_H
