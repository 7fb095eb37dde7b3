// Environment collector.
#include "collectors/system/environment.h"

#include "collectors/collectors.h"
#include "collectors/scan_context.h"
#include "host/command.h"
#include "host/text.h"
#include "zxml/tag.h"
#include "zxml/zXML.h"

void add_environment_variable(ztag* top, const std::string& line) {
  size_t eq = line.find('=');
  std::string name = line.substr(0, eq);
  std::string value = eq == std::string::npos ? std::string() : line.substr(eq + 1);
  std::string key = "env-var:" + name;

  ztag* environment = top->child("Environment");
  // The empty attribute with the "complex" annotation declares that the
  // variable's content is the child of the same name.
  environment->set_attr(key, zvalue(""), "complex", "");
  ztag* variable = environment->child(key, zvalue(name));
  // PATH is a list; the annotation tells the reader where to split it.
  variable->set_attr("value", zvalue(value), name == "PATH" ? "split" : nullptr, ":");
  variable->set_attr("system", zvalue("1"));
}

void record_environment(ztag* top, const std::string& env_output) {
  text::for_each_complete_line(
      env_output, [top](const std::string& line) { add_environment_variable(top, line); });
}

void collect_environment(ScanContext& ctx, zXML* doc) {
  record_environment(doc->top(), run_command(ctx.host, "env"));
}
