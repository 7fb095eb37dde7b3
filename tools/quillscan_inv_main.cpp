// quillscan-inv: reads .inv inventory files back.
//
//   quillscan-inv show FILE...     header and every record as an outline
//   quillscan-inv json FILE...     the same as one JSON object per file
//   quillscan-inv text FILE [N]    the document text of record N (or of every
//                                  document record), byte for byte
//   quillscan-inv raw FILE...      the raw text of the custom-data record(s)
//   quillscan-inv check FILE...    validates each file, one line per file
//   quillscan-inv export ...       typed tables into SQLite, NDJSON or CSV
//   quillscan-inv schema [TABLE]   JSON Schema of the exported rows
//   quillscan-inv diff OLD NEW     what changed between two scans
//
// FILE "-" is standard input. Every command takes --help and --version.
// Problems with a file are reported as "quillscan-inv: FILE: what" on
// standard error with exit status 1; a wrong command line gives one line
// starting "usage:" and status 2. Each record is checked, then printed as it
// is inflated, so memory does not grow with the file: a bad record stops the
// output after the records before it.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "tools/fleet.h"
#include "tools/inv_format.h"
#include "tools/inv_reader.h"

namespace {

struct Command {
  const char* name;
  const char* synopsis;
  const char* help;
};

const Command kCommands[] = {
    {"show", "show FILE...", "  the header and every record of each file as an outline\n"},
    {"json", "json FILE...", "  each file as one JSON object on one line (see: schema json)\n"},
    {"text", "text FILE [N]", "  the document text of record N, or of every document record\n"},
    {"raw", "raw FILE...", "  the raw text of the custom-data record(s)\n"},
    {"check", "check FILE...", "  validates each file, one line per file\n"},
    {"export", "export [--format sqlite|ndjson|csv] -o OUT FILE|DIR|-...",
     "  writes the typed tables of every file (DIR: every *.inv below it) into\n"
     "  the SQLite database OUT (created or added to; a file already imported\n"
     "  adds nothing), or into OUT/TABLE.ndjson or OUT/TABLE.csv (replaced).\n"
     "  A damaged file is reported and skipped; the status is then 1.\n"},
    {"schema", "schema [TABLE|json]",
     "  the JSON Schema of the exported rows (of one table), or of the json output\n"},
    {"diff", "diff OLD NEW [--format text|json] [--ignore FIELD,...] [--all]",
     "  what changed between two scans of a host, entity by entity. FIELD is a\n"
     "  table, a column or TABLE.COLUMN. Time-dependent values (scan time,\n"
     "  uptime, processes, environment) count only with --all. Status 0 when\n"
     "  identical, 1 when changed, 2 on error.\n"},
};

const Command* find_command(const std::string& name) {
  for (const Command& c : kCommands) {
    if (name == c.name) return &c;
  }
  return nullptr;
}

std::string full_usage() {
  std::string s;
  for (const Command& c : kCommands) {
    s += std::string(s.empty() ? "usage: " : "       ") + "quillscan-inv " + c.synopsis + "\n";
  }
  s += "FILE - is standard input; every command takes --help and --version.\n";
  return s;
}

// A wrong command line: one line on standard error, status 2.
int usage(const char* command = nullptr, const std::string& what = "") {
  const Command* c = command ? find_command(command) : nullptr;
  std::string line = "usage: quillscan-inv ";
  line += c ? c->synopsis : "COMMAND ARG... (quillscan-inv --help lists the commands)";
  if (!what.empty()) line += ": " + what;
  std::fprintf(stderr, "%s\n", line.c_str());
  return 2;
}

int fail(const std::string& file, const std::string& what) {
  std::fprintf(stderr, "quillscan-inv: %s: %s\n", file.c_str(), what.c_str());
  return 1;
}

void emit(const std::string& s) {
  std::fwrite(s.data(), 1, s.size(), stdout);
}

// Output collected in a buffer and written out whenever it has grown, so
// that a large record passes through in pieces.
void emit_some(std::string* out) {
  if (out->size() < (1u << 16)) return;
  emit(*out);
  out->clear();
}

// Inflates record i once without printing it: the compressed data and, with
// parse, the document text are checked, so that nothing of a bad record is
// printed. *size receives the inflated size.
bool verify_record(invread::InvReader& reader, size_t i, bool parse, uint64_t* size,
                   std::string* error) {
  invread::DocumentParser parser(nullptr);
  bool parsed = true;
  *size = 0;
  const invread::Sink count = [&](const char* data, size_t n) {
    *size += n;
    if (parse && parsed) parsed = parser.feed(data, n);
    return true;
  };
  if (!reader.stream(i, count, error)) return false;
  if (parse && (!parsed || !parser.finish())) {
    *error = "record " + std::to_string(i) + ": " + parser.error();
    return false;
  }
  return true;
}

// Streams the verified document record i through handler, printing what
// it writes to *out as it grows.
bool print_document(invread::InvReader& reader, size_t i, invread::DocumentHandler* handler,
                    std::string* out, std::string* error) {
  invread::DocumentParser parser(handler);
  const invread::Sink feed = [&](const char* data, size_t n) {
    const bool ok = parser.feed(data, n);
    emit_some(out);
    return ok;
  };
  if (reader.stream(i, feed, error) && parser.finish()) return true;
  // Only a file that changes while it is read gets here.
  if (error->empty()) *error = "record " + std::to_string(i) + ": " + parser.error();
  return false;
}

int cmd_show(const std::string& path, const std::string& name) {
  invread::InvReader reader;
  std::string error;
  if (!reader.open(path, &error)) return fail(name, error);
  const invread::Header& h = reader.header();
  std::string out = "file " + name + ": " + std::to_string(reader.file_size()) +
                    " bytes, format version " + std::to_string(h.version) + ", header at " +
                    std::to_string(h.position) + "\n";
  out += "header:\n";
  size_t start = 0;
  while (start < h.text.size()) {
    const size_t end = h.text.find('\n', start);
    out += "  " + invread::outline_text(h.text.substr(start, end - start)) + "\n";
    start = end + 1;
  }
  emit(out);
  for (size_t i = 0; i < h.records.size(); ++i) {
    const invread::RecordInfo& r = h.records[i];
    uint64_t size = 0;
    if (!verify_record(reader, i, r.is_document(), &size, &error)) {
      std::fflush(stdout);
      return fail(name, error);
    }
    out = "record " + std::to_string(i) + ": type=" + r.type +
          " offset=" + std::to_string(r.offset) + " length=" + std::to_string(r.length) + " (" +
          std::to_string(size) + " bytes inflated)\n";
    bool ok;
    if (r.is_document()) {
      invread::OutlineWriter outline(&out, 2);
      ok = print_document(reader, i, &outline, &out, &error);
    } else {
      invread::RawTextEscaper escaper;
      char last = '\n';
      const invread::Sink print = [&](const char* data, size_t n) {
        escaper.feed(data, n, &out);
        last = data[n - 1];
        emit_some(&out);
        return true;
      };
      ok = reader.stream(i, print, &error);
      escaper.finish(&out);
      if (last != '\n') out += "\n";
    }
    emit(out);
    if (!ok) {
      std::fflush(stdout);
      return fail(name, error);
    }
  }
  return 0;
}

int cmd_json(const std::string& path, const std::string& name) {
  invread::InvReader reader;
  std::string error;
  if (!reader.open(path, &error)) return fail(name, error);
  const invread::Header& h = reader.header();
  std::string out = "{\"file\":" + invread::json_string(name) +
                    ",\"size\":" + std::to_string(reader.file_size()) +
                    ",\"version\":" + std::to_string(h.version) +
                    ",\"write_flag\":" + std::to_string(h.write_flag) +
                    ",\"header_offset\":" + std::to_string(h.position) +
                    ",\"count\":" + std::to_string(h.count) +
                    ",\"snapshotcount\":" + std::to_string(h.snapshotcount) + ",\"records\":[";
  for (size_t i = 0; i < h.records.size(); ++i) {
    const invread::RecordInfo& r = h.records[i];
    uint64_t size = 0;
    if (!verify_record(reader, i, r.is_document(), &size, &error)) {
      emit(out);
      std::fflush(stdout);
      return fail(name, error);
    }
    if (i != 0) out += ",";
    out += "{\"index\":" + std::to_string(i);
    for (const auto& f : r.fields) {
      const bool number = f.first == "offset" || f.first == "length";
      out += "," + invread::json_string(f.first) + ":" +
             (number ? f.second : invread::json_string(f.second));
    }
    bool ok;
    if (r.is_document()) {
      invread::JsonWriter json(&out, true);
      ok = print_document(reader, i, &json, &out, &error);
    } else {
      // One JSON string: the text is escaped piece by piece. A piece may
      // end inside a UTF-8 sequence, so the pieces are cut at sequence
      // starts before escaping.
      std::string pending;
      out += ",\"text\":\"";
      const invread::Sink print = [&](const char* data, size_t n) {
        pending.append(data, n);
        size_t cut = pending.size();
        for (size_t back = 1; back <= 3 && back <= pending.size(); ++back) {
          if ((static_cast<unsigned char>(pending[pending.size() - back]) & 0xC0) != 0x80) {
            if (static_cast<unsigned char>(pending[pending.size() - back]) >= 0xC0) {
              cut = pending.size() - back;
            }
            break;
          }
        }
        const std::string piece = invread::json_string(std::string_view(pending).substr(0, cut));
        out.append(piece, 1, piece.size() - 2);
        pending.erase(0, cut);
        emit_some(&out);
        return true;
      };
      ok = reader.stream(i, print, &error);
      const std::string rest = invread::json_string(pending);
      out.append(rest, 1, rest.size() - 2);
      out += "\"";
    }
    if (!ok) {
      emit(out);
      std::fflush(stdout);
      return fail(name, error);
    }
    out += "}";
  }
  out += "]}\n";
  emit(out);
  return 0;
}

// Writes the inflated content of record i as it is, piece by piece, after
// a first pass has checked it.
bool print_content(invread::InvReader& reader, size_t i, std::string* error) {
  uint64_t size = 0;
  if (!verify_record(reader, i, false, &size, error)) return false;
  const invread::Sink print = [](const char* data, size_t n) {
    std::fwrite(data, 1, n, stdout);
    return true;
  };
  return reader.stream(i, print, error);
}

int cmd_text(const std::string& path, const std::string& name, const char* which) {
  // The record number is checked before the file is opened: a malformed
  // number is a usage error whatever the file holds.
  size_t n = 0;
  if (which != nullptr) {
    if (*which == '\0' || std::strlen(which) > 9) return usage("text", "N is a record number");
    for (const char* p = which; *p != '\0'; ++p) {
      if (*p < '0' || *p > '9') return usage("text", "N is a record number");
      n = n * 10 + static_cast<size_t>(*p - '0');
    }
  }
  invread::InvReader reader;
  std::string error;
  if (!reader.open(path, &error)) return fail(name, error);
  const invread::Header& h = reader.header();
  std::vector<size_t> records;
  if (which != nullptr) {
    if (n >= h.records.size()) {
      return fail(name, "no record " + std::to_string(n) + " (the file has " +
                            std::to_string(h.records.size()) + ")");
    }
    if (!h.records[n].is_document()) {
      return fail(name, "record " + std::to_string(n) +
                            " is not a document (type=" + h.records[n].type + ")");
    }
    records.push_back(n);
  } else {
    for (size_t i = 0; i < h.records.size(); ++i) {
      if (h.records[i].is_document()) records.push_back(i);
    }
  }
  for (size_t i : records) {
    if (!print_content(reader, i, &error)) {
      std::fflush(stdout);
      return fail(name, error);
    }
  }
  return 0;
}

int cmd_raw(const std::string& path, const std::string& name) {
  invread::InvReader reader;
  std::string error;
  if (!reader.open(path, &error)) return fail(name, error);
  bool found = false;
  for (size_t i = 0; i < reader.header().records.size(); ++i) {
    if (reader.header().records[i].is_document()) continue;
    if (!print_content(reader, i, &error)) {
      std::fflush(stdout);
      return fail(name, error);
    }
    found = true;
  }
  if (!found) return fail(name, "no custom-data record");
  return 0;
}

// Runs fn on each named file ("-" is standard input); the status is the
// worst of the files'.
template <typename Fn>
int each_file(const std::vector<std::string>& files, Fn fn) {
  int status = 0;
  for (const std::string& f : files) {
    invtab::InputFile in;
    std::string error;
    const int s = in.open(f, nullptr, nullptr, &error) ? fn(in.path(), f) : fail(f, error);
    if (s > status) status = s;
  }
  return status;
}

int run(int argc, char** argv) {
  if (argc < 2) return usage();
  const std::string cmd = argv[1];
  if (cmd == "-h" || cmd == "--help") {
    std::fputs(full_usage().c_str(), stdout);
    return 0;
  }
  if (cmd == "--version") {
    std::printf("quillscan-inv %s\n", invtab::kVersion);
    return 0;
  }
  const Command* command = find_command(cmd);
  if (command == nullptr) return usage(nullptr, "unknown command " + cmd);
  std::vector<std::string> args(argv + 2, argv + argc);
  for (const std::string& a : args) {
    if (a == "--help" || a == "-h") {
      std::printf("usage: quillscan-inv %s\n%s", command->synopsis, command->help);
      return 0;
    }
    if (a == "--version") {
      std::printf("quillscan-inv %s\n", invtab::kVersion);
      return 0;
    }
  }
  if (cmd == "export") return invtab::cmd_export(args);
  if (cmd == "schema") return invtab::cmd_schema(args);
  if (cmd == "diff") return invtab::cmd_diff(args);
  for (const std::string& a : args) {
    if (a.size() > 1 && a[0] == '-') return usage(argv[1], "unknown option " + a);
  }
  if (args.empty()) return usage(argv[1]);
  if (cmd == "text") {
    if (args.size() > 2) return usage(argv[1]);
    const char* which = args.size() == 2 ? argv[3] : nullptr;
    return each_file({args[0]}, [which](const std::string& p, const std::string& n) {
      return cmd_text(p, n, which);
    });
  }
  if (cmd == "check") {
    return each_file(args, [](const std::string& p, const std::string& n) {
      std::string summary, error;
      if (!invread::check_file(p, &summary, &error)) {
        std::fflush(stdout);
        return fail(n, error);
      }
      std::printf("%s: ok, %s\n", n.c_str(), summary.c_str());
      std::fflush(stdout);
      return 0;
    });
  }
  if (cmd == "show") return each_file(args, cmd_show);
  if (cmd == "json") return each_file(args, cmd_json);
  return each_file(args, cmd_raw);
}

}  // namespace

int main(int argc, char** argv) {
  int status = run(argc, argv);
  if (std::fflush(stdout) != 0 || std::ferror(stdout)) {
    std::fprintf(stderr, "quillscan-inv: cannot write the output: %s\n", std::strerror(errno));
    if (status == 0) status = 1;
  }
  return status;
}
