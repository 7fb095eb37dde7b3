// quillscan-inv diff: what changed between two scans of a host, entity by
// entity. Rows are matched by their table's identity key (a machine by its
// configuration file, a package by its name, an adapter by its MAC ...);
// exit status 0 when nothing changed, 1 when something did, 2 on error.
#include <cstdio>
#include <map>
#include <set>
#include <unordered_map>

#include "tools/fleet.h"
#include "tools/inv_format.h"

namespace invtab {
namespace {

using invread::json_string;

struct Collect : RowSink {
  std::map<const Table*, std::vector<Row>> rows;
  bool row(const Table& t, Row& r, std::string*) override {
    rows[&t].push_back(r);
    return true;
  }
};

struct Options {
  bool json = false;
  bool all = false;
  std::set<std::string> ignore;  // "table", "column" or "table.column"
};

// Columns that say where a row sits rather than what it holds.
bool positional(const std::string& name) {
  return name == "scan_id" || name == "position" || name == "number" || name == "vm_number" ||
         name == "file_name" || name == "file_size";
}

bool ignored(const Options& o, const Table& t, const std::string& col) {
  if (o.ignore.count(col) || o.ignore.count(t.name + "." + col)) return true;
  if (o.all) return false;
  for (const std::string& v : t.volatile_columns) {
    if (v == col) return true;
  }
  return false;
}

// The identity of a row: the chosen column of each key part, and its value.
std::vector<std::pair<int, const Value*>> identity(const Table& t, const Row& r) {
  std::vector<std::pair<int, const Value*>> id;
  for (const auto& part : t.key) {
    int chosen = -1;
    for (const std::string& name : part) {
      const int c = t.column_index(name);
      if (c >= 0 && r[c].kind != Value::kNull && !(r[c].kind == Value::kText && r[c].s.empty())) {
        chosen = c;
        break;
      }
    }
    if (chosen < 0) chosen = t.column_index(part.front());
    id.push_back({chosen, &r[chosen]});
  }
  return id;
}

std::string key_string(const Table& t, const Row& r) {
  std::string k;
  for (const auto& p : identity(t, r)) {
    k += t.columns[p.first].name + "\x1f" + std::to_string(p.second->kind) + p.second->display() +
         "\x1e";
  }
  return k;
}

// Keys of a table's rows, the n-th duplicate of a key told apart by n.
std::vector<std::string> keys(const Table& t, const std::vector<Row>& rows) {
  std::vector<std::string> out;
  std::unordered_map<std::string, int> seen;
  for (const Row& r : rows) {
    std::string k = key_string(t, r);
    const int n = seen[k]++;
    out.push_back(k + std::to_string(n));
  }
  return out;
}

std::string json_value(const Value& v) {
  if (v.kind == Value::kInt) return std::to_string(v.i);
  if (v.kind == Value::kText) return json_string(v.s);
  return "null";
}

class Report {
 public:
  explicit Report(const Options& o) : o_(o) {}

  void added(const Table& t, const Row& r) { entity(t, r, "added", &r, nullptr); }
  void removed(const Table& t, const Row& r) { entity(t, r, "removed", &r, nullptr); }
  void changed(const Table& t, const Row& r,
               const std::vector<std::pair<int, std::pair<const Value*, const Value*>>>& f) {
    entity(t, r, "changed", nullptr, &f);
  }
  size_t count() const { return count_; }
  std::string finish(const std::string& a, const std::string& b) const {
    if (!o_.json) return text_;
    return "{\"old\":" + json_string(a) + ",\"new\":" + json_string(b) +
           ",\"identical\":" + (count_ == 0 ? "true" : "false") + ",\"changes\":[" + text_ + "]}\n";
  }

 private:
  void entity(const Table& t, const Row& key_row, const char* what, const Row* row,
              const std::vector<std::pair<int, std::pair<const Value*, const Value*>>>* fields) {
    const auto id = identity(t, key_row);
    if (o_.json) {
      text_ += std::string(count_ ? "," : "") + "{\"table\":" + json_string(t.name) +
               ",\"change\":\"" + what + "\",\"key\":{";
      for (size_t i = 0; i < id.size(); ++i) {
        text_ += (i ? "," : "") + json_string(t.columns[id[i].first].name) + ":" +
                 json_value(*id[i].second);
      }
      text_ += "}";
      if (row != nullptr) {
        text_ += ",\"row\":{";
        bool first = true;
        for (size_t c = 0; c < t.columns.size(); ++c) {
          if (t.columns[c].name == "scan_id") continue;
          text_ +=
              (first ? "" : ",") + json_string(t.columns[c].name) + ":" + json_value((*row)[c]);
          first = false;
        }
        text_ += "}";
      }
      if (fields != nullptr) {
        text_ += ",\"fields\":[";
        for (size_t i = 0; i < fields->size(); ++i) {
          const auto& f = (*fields)[i];
          text_ += std::string(i ? "," : "") + "{\"name\":" + json_string(t.columns[f.first].name) +
                   ",\"old\":" + json_value(*f.second.first) +
                   ",\"new\":" + json_value(*f.second.second) + "}";
        }
        text_ += "]";
      }
      text_ += "}";
    } else {
      std::string head = t.name;
      if (!id.empty()) {
        head += " [";
        for (size_t i = 0; i < id.size(); ++i) {
          head += (i ? ", " : "") + t.columns[id[i].first].name + "=" +
                  invread::outline_text(id[i].second->display());
        }
        head += "]";
      }
      if (fields == nullptr) {
        text_ += head + ": " + what + "\n";
      } else {
        for (const auto& f : *fields) {
          text_ += head + ": " + t.columns[f.first].name + ": " +
                   invread::outline_text(f.second.first->display()) + " -> " +
                   invread::outline_text(f.second.second->display()) + "\n";
        }
      }
    }
    ++count_;
  }

  const Options& o_;
  std::string text_;
  size_t count_ = 0;
};

void diff_table(const Table& t, const std::vector<Row>& a, const std::vector<Row>& b,
                const Options& o, Report* report) {
  const std::vector<std::string> ka = keys(t, a), kb = keys(t, b);
  std::unordered_map<std::string, size_t> in_b, in_a;
  for (size_t i = 0; i < kb.size(); ++i) in_b[kb[i]] = i;
  for (size_t i = 0; i < ka.size(); ++i) in_a[ka[i]] = i;
  for (size_t i = 0; i < a.size(); ++i) {
    const auto it = in_b.find(ka[i]);
    if (it == in_b.end()) {
      report->removed(t, a[i]);
      continue;
    }
    const Row& nb = b[it->second];
    std::vector<std::pair<int, std::pair<const Value*, const Value*>>> fields;
    for (size_t c = 0; c < t.columns.size(); ++c) {
      const std::string& name = t.columns[c].name;
      if (positional(name) || ignored(o, t, name)) continue;
      if (a[i][c] != nb[c]) fields.push_back({static_cast<int>(c), {&a[i][c], &nb[c]}});
    }
    if (!fields.empty()) report->changed(t, nb, fields);
  }
  for (size_t i = 0; i < b.size(); ++i) {
    if (!in_a.count(kb[i])) report->added(t, b[i]);
  }
}

int usage_error(const std::string& what) {
  std::fprintf(stderr,
               "usage: quillscan-inv diff OLD NEW [--format text|json] [--ignore FIELD,...] "
               "[--all]: %s\n",
               what.c_str());
  return 2;
}

bool known_field(const std::string& f) {
  const size_t dot = f.find('.');
  for (const Table& t : tables()) {
    if (dot == std::string::npos) {
      if (t.name == f || t.column_index(f) >= 0) return true;
    } else if (t.name == f.substr(0, dot) && t.column_index(f.substr(dot + 1)) >= 0) {
      return true;
    }
  }
  return false;
}

}  // namespace

int cmd_diff(const std::vector<std::string>& args) {
  Options o;
  std::vector<std::string> files;
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& a = args[i];
    std::string value;
    const bool format = a == "--format" || a.compare(0, 9, "--format=") == 0;
    const bool ignore = a == "--ignore" || a.compare(0, 9, "--ignore=") == 0;
    if (format || ignore) {
      if (a.size() > 8 && a[8] == '=') {
        value = a.substr(9);
      } else if (i + 1 < args.size()) {
        value = args[++i];
      } else {
        return usage_error(a + " needs a value");
      }
    }
    if (format) {
      if (value != "text" && value != "json") return usage_error("unknown format " + value);
      o.json = value == "json";
    } else if (ignore) {
      size_t start = 0;
      while (start <= value.size()) {
        const size_t comma = value.find(',', start);
        const std::string f =
            value.substr(start, comma == std::string::npos ? comma : comma - start);
        if (!f.empty() && !known_field(f)) return usage_error("no table or column " + f);
        if (!f.empty()) o.ignore.insert(f);
        if (comma == std::string::npos) break;
        start = comma + 1;
      }
    } else if (a == "--all") {
      o.all = true;
    } else if (a.size() > 1 && a[0] == '-') {
      return usage_error("unknown option " + a);
    } else {
      files.push_back(a);
    }
  }
  if (files.size() != 2) return usage_error("two files are needed");
  if (files[0] == "-" && files[1] == "-") return usage_error("only one file can be \"-\"");

  Collect rows[2];
  for (int i = 0; i < 2; ++i) {
    std::string error;
    InputFile input;
    ScanFile file;
    if (!open_scan(files[i], &input, &file, &error) || !map_scan(input, file, &rows[i], &error)) {
      std::fprintf(stderr, "quillscan-inv: %s: %s\n", files[i].c_str(), error.c_str());
      return 2;
    }
  }
  Report report(o);
  static const std::vector<Row> kNone;
  for (const Table& t : tables()) {
    if (o.ignore.count(t.name) || (t.volatile_rows && !o.all)) continue;
    const auto a = rows[0].rows.find(&t), b = rows[1].rows.find(&t);
    diff_table(t, a == rows[0].rows.end() ? kNone : a->second,
               b == rows[1].rows.end() ? kNone : b->second, o, &report);
  }
  const std::string out = report.finish(files[0], files[1]);
  std::fwrite(out.data(), 1, out.size(), stdout);
  return report.count() == 0 ? 0 : 1;
}

}  // namespace invtab
