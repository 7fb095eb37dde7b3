// Running processes from the process listing tool, as children "process:N"
// of the "Processes" node.
#ifndef QUILLSCAN_COLLECTORS_SYSTEM_PROCESSES_H_
#define QUILLSCAN_COLLECTORS_SYSTEM_PROCESSES_H_

#include <string>

class ztag;

// Records the process lines of a listing below top, skipping its two heading
// lines. Columns are cut at single blanks: the first two are "pid" and
// "cid", the third is the child's value, the rest is "cmd-line".
void record_processes(ztag* top, const std::string& listing);

#endif  // QUILLSCAN_COLLECTORS_SYSTEM_PROCESSES_H_
