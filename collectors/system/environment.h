// The agent's environment variables from "env", as attributes and children
// "env-var:NAME" of the "Environment" node.
#ifndef QUILLSCAN_COLLECTORS_SYSTEM_ENVIRONMENT_H_
#define QUILLSCAN_COLLECTORS_SYSTEM_ENVIRONMENT_H_

#include <string>

class ztag;

// Records one NAME=VALUE line below top.
void add_environment_variable(ztag* top, const std::string& line);

// Records every complete line of the output of "env".
void record_environment(ztag* top, const std::string& env_output);

#endif  // QUILLSCAN_COLLECTORS_SYSTEM_ENVIRONMENT_H_
