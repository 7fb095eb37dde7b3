// quillscan-inv schema: JSON Schemas (draft 2020-12) of the exported rows
// and of the `json` command's output. Each column's "x-source" names the
// place in the document its value comes from.
#include <cstdio>

#include "tools/fleet.h"
#include "tools/inv_format.h"

namespace invtab {
namespace {

using invread::json_string;

const char kDraft[] = "\"$schema\":\"https://json-schema.org/draft/2020-12/schema\"";

std::string column_schema(const Table& t, const Column& c) {
  std::string s = "{";
  if (c.name == "scan_id") {
    s += "\"type\":\"string\",\"pattern\":\"^[0-9a-f]{64}$\"";
  } else if (c.name == "position") {
    s += "\"type\":\"integer\",\"minimum\":1";
  } else if (c.conv == Conv::kFlag) {
    s += "\"enum\":[0,1,null]";
  } else if (c.conv == Conv::kTime) {
    s += "\"type\":[\"string\",\"null\"],\"pattern\":\"^[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{"
         "2}:"
         "[0-9]{2}Z$\"";
  } else if (c.conv == Conv::kBytes || c.conv == Conv::kInterval) {
    s += "\"type\":[\"integer\",\"null\"],\"minimum\":0";
  } else {
    s += std::string("\"type\":[\"") + (c.type() == Type::kInteger ? "integer" : "string") +
         "\",\"null\"]";
  }
  if (!c.description.empty()) s += ",\"description\":" + json_string(c.description);
  const std::string src = t.source_path(c);
  if (!src.empty()) s += ",\"x-source\":" + json_string(src);
  return s + "}";
}

std::string table_schema(const Table& t, bool standalone) {
  std::string s = "{";
  if (standalone) s += std::string(kDraft) + ",";
  s += "\"title\":" + json_string(t.name) + ",\"description\":" + json_string(t.description) +
       ",\"type\":\"object\",\"properties\":{";
  for (size_t i = 0; i < t.columns.size(); ++i) {
    s += (i ? "," : "") + json_string(t.columns[i].name) + ":" + column_schema(t, t.columns[i]);
  }
  s += "},\"required\":[";
  for (size_t i = 0; i < t.columns.size(); ++i)
    s += (i ? "," : "") + json_string(t.columns[i].name);
  return s + "],\"additionalProperties\":false}";
}

// The `json` command's output: one object per file.
std::string json_output_schema(bool standalone) {
  const std::string annotations =
      "{\"type\":\"array\",\"items\":{\"type\":\"object\",\"properties\":{\"key\":{\"type\":"
      "\"string\"},\"text\":{\"type\":\"string\"}},\"required\":[\"key\",\"text\"],"
      "\"additionalProperties\":false}}";
  std::string s = "{";
  if (standalone) s += std::string(kDraft) + ",";
  s += "\"title\":\"json\",\"description\":\"Output of quillscan-inv json: one object per file\","
       "\"type\":\"object\",\"required\":[\"file\",\"size\",\"version\",\"write_flag\","
       "\"header_offset\",\"count\",\"snapshotcount\",\"records\"],\"additionalProperties\":false,"
       "\"properties\":{\"file\":{\"type\":\"string\"},\"size\":{\"type\":\"integer\"},"
       "\"version\":{\"type\":\"integer\"},\"write_flag\":{\"type\":\"integer\"},"
       "\"header_offset\":{\"type\":\"integer\"},\"count\":{\"type\":\"integer\"},"
       "\"snapshotcount\":{\"type\":\"integer\"},\"records\":{\"type\":\"array\",\"items\":{"
       "\"type\":\"object\",\"required\":[\"index\",\"type\",\"offset\",\"length\"],"
       "\"properties\":{\"index\":{\"type\":\"integer\"},\"offset\":{\"type\":\"integer\"},"
       "\"length\":{\"type\":\"integer\"},\"type\":{\"enum\":[\"snapshot\",\"assetinfo\","
       "\"customdata\"]},\"document\":{\"$ref\":\"#/$defs/element\"},\"root_siblings\":{"
       "\"type\":\"array\",\"items\":{\"$ref\":\"#/$defs/element\"}},\"text\":{\"type\":"
       "\"string\"}},\"additionalProperties\":{\"type\":\"string\"}}}},"
       "\"$defs\":{\"element\":{\"type\":\"object\",\"required\":[\"name\",\"value\","
       "\"annotations\",\"attributes\",\"children\"],\"additionalProperties\":false,"
       "\"properties\":{\"name\":{\"type\":\"string\"},\"value\":{\"type\":\"string\"},"
       "\"annotations\":" +
       annotations +
       ",\"attributes\":{\"type\":\"array\",\"items\":{\"type\":\"object\",\"required\":["
       "\"name\",\"value\",\"annotations\"],\"additionalProperties\":false,\"properties\":{"
       "\"name\":{\"type\":\"string\"},\"value\":{\"type\":\"string\"},\"annotations\":" +
       annotations +
       "}}},\"children\":{\"type\":\"array\",\"items\":{\"$ref\":\"#/$defs/element\"}}}}}}";
  return s;
}

}  // namespace

bool schema_text(const std::string& which, std::string* out) {
  if (which == "json") {
    *out = json_output_schema(true) + "\n";
    return true;
  }
  if (!which.empty()) {
    const Table* t = find_table(which);
    if (t == nullptr) return false;
    *out = table_schema(*t, true) + "\n";
    return true;
  }
  // Everything: the tables and the json output under $defs; the tables'
  // "$ref"s resolve against this document.
  std::string s = "{" + std::string(kDraft) +
                  ",\"title\":\"quillscan-inv fleet data\",\"description\":\"Rows of quillscan-inv "
                  "export (one object per NDJSON line) by table, and the output of quillscan-inv "
                  "json\",\"$defs\":{";
  for (const Table& t : tables()) s += json_string(t.name) + ":" + table_schema(t, false) + ",";
  s += "\"json\":" + json_output_schema(false) + "}}";
  // The json output's element references point into its own $defs.
  const std::string from = "#/$defs/element", to = "#/$defs/json/$defs/element";
  for (size_t p = s.find(from); p != std::string::npos; p = s.find(from, p + to.size())) {
    s.replace(p, from.size(), to);
  }
  *out = s + "\n";
  return true;
}

int cmd_schema(const std::vector<std::string>& args) {
  if (args.size() > 1 || (args.size() == 1 && args[0].size() > 1 && args[0][0] == '-')) {
    std::fputs("usage: quillscan-inv schema [TABLE|json]\n", stderr);
    return 2;
  }
  std::string out;
  if (!schema_text(args.empty() ? "" : args[0], &out)) {
    std::fprintf(stderr, "usage: quillscan-inv schema [TABLE|json]: no table %s\n",
                 args[0].c_str());
    return 2;
  }
  std::fwrite(out.data(), 1, out.size(), stdout);
  return 0;
}

}  // namespace invtab
