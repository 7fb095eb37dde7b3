// quillscan-inv: reads .inv inventory files back.
//
//   quillscan-inv show FILE       header and every record as an outline
//   quillscan-inv json FILE       the same as one JSON object
//   quillscan-inv text FILE [N]   the document text of record N (or of every
//                                 document record), byte for byte
//   quillscan-inv raw FILE        the raw text of the custom-data record(s)
//   quillscan-inv check FILE...   validates each file, one line per file
//
// Problems with a file are reported as "quillscan-inv: FILE: what" on
// standard error with exit status 1; a wrong command line gives status 2.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "tools/inv_format.h"
#include "tools/inv_reader.h"

namespace {

const char kUsage[] =
    "usage: quillscan-inv show FILE\n"
    "       quillscan-inv json FILE\n"
    "       quillscan-inv text FILE [N]\n"
    "       quillscan-inv raw FILE\n"
    "       quillscan-inv check FILE...\n";

int usage() {
  std::fputs(kUsage, stderr);
  return 2;
}

int fail(const std::string& file, const std::string& what) {
  std::fprintf(stderr, "quillscan-inv: %s: %s\n", file.c_str(), what.c_str());
  return 1;
}

void emit(const std::string& s) {
  std::fwrite(s.data(), 1, s.size(), stdout);
}

// A record's parsed document, or the error that kept it from parsing.
bool load_document(invread::InvReader& reader, size_t i, std::string* text, invread::Element* top,
                   std::vector<invread::Element>* more, std::string* error) {
  if (!reader.content(i, text, error)) return false;
  std::string what;
  if (!invread::parse_document(*text, top, &what, more)) {
    *error = "record " + std::to_string(i) + ": " + what;
    return false;
  }
  return true;
}

int cmd_show(const std::string& path) {
  invread::InvReader reader;
  std::string error;
  if (!reader.open(path, &error)) return fail(path, error);
  const invread::Header& h = reader.header();
  std::string out = "file " + path + ": " + std::to_string(reader.file_size()) +
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
    std::string text;
    invread::Element top;
    std::vector<invread::Element> more;
    if (r.is_document() ? !load_document(reader, i, &text, &top, &more, &error)
                        : !reader.content(i, &text, &error)) {
      std::fflush(stdout);
      return fail(path, error);
    }
    out = "record " + std::to_string(i) + ": type=" + r.type +
          " offset=" + std::to_string(r.offset) + " length=" + std::to_string(r.length) + " (" +
          std::to_string(text.size()) + " bytes inflated)\n";
    if (r.is_document()) {
      invread::append_element_outline(top, 2, &out);
      for (const invread::Element& e : more) invread::append_element_outline(e, 2, &out);
    } else {
      out += text;
      if (!text.empty() && text.back() != '\n') out += "\n";
    }
    emit(out);
  }
  return 0;
}

int cmd_json(const std::string& path) {
  invread::InvReader reader;
  std::string error;
  if (!reader.open(path, &error)) return fail(path, error);
  const invread::Header& h = reader.header();
  std::string out = "{\"file\":" + invread::json_string(path) +
                    ",\"size\":" + std::to_string(reader.file_size()) +
                    ",\"version\":" + std::to_string(h.version) +
                    ",\"write_flag\":" + std::to_string(h.write_flag) +
                    ",\"header_offset\":" + std::to_string(h.position) +
                    ",\"count\":" + std::to_string(h.count) +
                    ",\"snapshotcount\":" + std::to_string(h.snapshotcount) + ",\"records\":[";
  for (size_t i = 0; i < h.records.size(); ++i) {
    const invread::RecordInfo& r = h.records[i];
    if (i != 0) out += ",";
    out += "{\"index\":" + std::to_string(i);
    for (const auto& f : r.fields) {
      const bool number = f.first == "offset" || f.first == "length";
      out += "," + invread::json_string(f.first) + ":" +
             (number ? f.second : invread::json_string(f.second));
    }
    std::string text;
    if (r.is_document()) {
      invread::Element top;
      std::vector<invread::Element> more;
      if (!load_document(reader, i, &text, &top, &more, &error)) return fail(path, error);
      out += ",\"document\":";
      invread::append_element_json(top, &out);
      // Further elements of the document root, after the top element.
      out += ",\"root_siblings\":[";
      for (size_t k = 0; k < more.size(); ++k) {
        if (k != 0) out += ",";
        invread::append_element_json(more[k], &out);
      }
      out += "]";
    } else {
      if (!reader.content(i, &text, &error)) return fail(path, error);
      out += ",\"text\":" + invread::json_string(text);
    }
    out += "}";
  }
  out += "]}\n";
  emit(out);
  return 0;
}

int cmd_text(const std::string& path, const char* which) {
  // The record number is checked before the file is opened: a malformed
  // number is a usage error whatever the file holds.
  size_t n = 0;
  if (which != nullptr) {
    if (*which == '\0' || std::strlen(which) > 9) return usage();
    for (const char* p = which; *p != '\0'; ++p) {
      if (*p < '0' || *p > '9') return usage();
      n = n * 10 + static_cast<size_t>(*p - '0');
    }
  }
  invread::InvReader reader;
  std::string error;
  if (!reader.open(path, &error)) return fail(path, error);
  const invread::Header& h = reader.header();
  std::vector<size_t> records;
  if (which != nullptr) {
    if (n >= h.records.size()) {
      return fail(path, "no record " + std::to_string(n) + " (the file has " +
                            std::to_string(h.records.size()) + ")");
    }
    if (!h.records[n].is_document()) {
      return fail(path, "record " + std::to_string(n) +
                            " is not a document (type=" + h.records[n].type + ")");
    }
    records.push_back(n);
  } else {
    for (size_t i = 0; i < h.records.size(); ++i) {
      if (h.records[i].is_document()) records.push_back(i);
    }
  }
  // Everything is read before anything is printed, so a bad record does not
  // leave half an output behind.
  std::string out;
  for (size_t i : records) {
    std::string text;
    if (!reader.content(i, &text, &error)) return fail(path, error);
    out += text;
  }
  emit(out);
  return 0;
}

int cmd_raw(const std::string& path) {
  invread::InvReader reader;
  std::string error;
  if (!reader.open(path, &error)) return fail(path, error);
  std::string out;
  bool found = false;
  for (size_t i = 0; i < reader.header().records.size(); ++i) {
    if (reader.header().records[i].is_document()) continue;
    std::string text;
    if (!reader.content(i, &text, &error)) return fail(path, error);
    out += text;
    found = true;
  }
  if (!found) return fail(path, "no custom-data record");
  emit(out);
  return 0;
}

int cmd_check(int argc, char** argv) {
  int status = 0;
  for (int i = 0; i < argc; ++i) {
    std::string summary, error;
    if (invread::check_file(argv[i], &summary, &error)) {
      std::printf("%s: ok, %s\n", argv[i], summary.c_str());
    } else {
      std::fflush(stdout);
      status = fail(argv[i], error);
    }
    std::fflush(stdout);
  }
  return status;
}

int run(int argc, char** argv) {
  if (argc < 2) return usage();
  const std::string cmd = argv[1];
  if (cmd == "-h" || cmd == "--help") {
    std::fputs(kUsage, stdout);
    return 0;
  }
  if (cmd == "check") return argc >= 3 ? cmd_check(argc - 2, argv + 2) : usage();
  if (cmd == "text") {
    if (argc != 3 && argc != 4) return usage();
    return cmd_text(argv[2], argc == 4 ? argv[3] : nullptr);
  }
  if (argc != 3) return usage();
  if (cmd == "show") return cmd_show(argv[2]);
  if (cmd == "json") return cmd_json(argv[2]);
  if (cmd == "raw") return cmd_raw(argv[2]);
  return usage();
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
