// The warning attribute that tells what a scan skipped because the host's
// text was malformed (only written when the reading that skips such input
// instead of ending the scan is switched on).
#ifndef QUILLSCAN_HOST_INPUT_WARNING_H_
#define QUILLSCAN_HOST_INPUT_WARNING_H_

#include <string>

class ztag;

// Adds "Warning:N" (N the first free number on node) with an empty text and
// the annotations "type" = "malformed_input", "source" = the command or file
// the text came from, and "skipped" = what was skipped or read otherwise.
void add_input_warning(ztag* node, const std::string& source, const std::string& skipped);

#endif  // QUILLSCAN_HOST_INPUT_WARNING_H_
