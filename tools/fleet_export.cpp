// quillscan-inv export: the tables of many .inv files into one SQLite
// database (appended to, one transaction per file, a file already imported
// adds nothing) or into one NDJSON or CSV file per table (written afresh).
#include <sqlite3.h>

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <map>
#include <set>

#include "tools/fleet.h"
#include "tools/inv_format.h"

namespace invtab {
namespace {

namespace fs = std::filesystem;

const char* sql_type(const Column& c) {
  return c.type() == Type::kInteger ? "INTEGER" : "TEXT";
}

// Receives one file's rows and makes them permanent only when the whole
// file went through.
class Writer : public RowSink {
 public:
  virtual bool open(const std::string& out, std::string* error) = 0;
  // Whether the scan is already in the output.
  virtual bool has_scan(const std::string& scan_id, bool* found, std::string* error) = 0;
  virtual bool begin(std::string* error) = 0;
  virtual bool commit(std::string* error) = 0;
  virtual void rollback() = 0;
  virtual bool close(std::string* error) = 0;
};

class SqliteWriter : public Writer {
 public:
  ~SqliteWriter() override {
    for (sqlite3_stmt* s : insert_) sqlite3_finalize(s);
    sqlite3_finalize(find_scan_);
    if (db_ != nullptr) sqlite3_close(db_);
  }

  bool open(const std::string& out, std::string* error) override {
    // One thread uses the connection: no mutexes around every call.
    if (sqlite3_open_v2(out.c_str(), &db_,
                        SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX,
                        nullptr) != SQLITE_OK) {
      return fail(error);
    }
    sqlite3_busy_timeout(db_, 5000);
    // Write-ahead logging: a commit per file without a sync each time; a
    // crash still leaves every committed file and nothing of the others.
    // A new database gets 16 KB pages (set before the log mode, which fixes
    // them): rows are only appended, and larger pages mean fewer page splits
    // and overflow pages for long texts (measured: about a tenth less time
    // than 4 KB; 64 KB is slower again).
    std::string sql =
        "PRAGMA page_size=16384; PRAGMA journal_mode=WAL; PRAGMA synchronous=NORMAL; BEGIN;";
    for (const Table& t : tables()) {
      sql += "CREATE TABLE IF NOT EXISTS " + t.name + " (";
      for (size_t i = 0; i < t.columns.size(); ++i) {
        const Column& c = t.columns[i];
        sql += (i ? ", " : "") + c.name + " " + sql_type(c);
        if (c.name == "scan_id" || c.name == "position") sql += " NOT NULL";
      }
      // Only scans has a key (the scan id, which makes a second import of
      // a file add nothing). The other tables are plain rowid tables that
      // rows are appended to, in export order: a key or an index on them
      // would cost more than the rest of the export together.
      sql += t.name == "scans" ? ", PRIMARY KEY (scan_id));" : ");";
    }
    sql +=
        "CREATE INDEX IF NOT EXISTS scans_by_host ON scans (host_key, scan_time);"
        // The newest scan of each host (ties broken by scan id), for
        // fleet-wide queries that should not count history twice.
        "CREATE VIEW IF NOT EXISTS latest_scans AS SELECT * FROM scans s WHERE scan_id = "
        "(SELECT t.scan_id FROM scans t WHERE t.host_key = s.host_key "
        "ORDER BY t.scan_time DESC, t.scan_id DESC LIMIT 1);"
        "COMMIT;";
    if (!exec(sql, error)) return false;
    for (const Table& t : tables()) {
      std::string ins = "INSERT INTO " + t.name + " VALUES (";
      for (size_t i = 0; i < t.columns.size(); ++i) ins += i ? ",?" : "?";
      ins += ")";
      sqlite3_stmt* st = nullptr;
      if (sqlite3_prepare_v2(db_, ins.c_str(), -1, &st, nullptr) != SQLITE_OK) {
        *error = t.name + ": " + sqlite3_errmsg(db_) + " (a database of another layout?)";
        return false;
      }
      insert_.push_back(st);
    }
    return sqlite3_prepare_v2(db_, "SELECT 1 FROM scans WHERE scan_id = ?", -1, &find_scan_,
                              nullptr) == SQLITE_OK ||
           fail(error);
  }

  bool has_scan(const std::string& id, bool* found, std::string* error) override {
    sqlite3_reset(find_scan_);
    sqlite3_bind_text(find_scan_, 1, id.data(), static_cast<int>(id.size()), SQLITE_TRANSIENT);
    const int rc = sqlite3_step(find_scan_);
    if (rc != SQLITE_ROW && rc != SQLITE_DONE) return fail(error);
    *found = rc == SQLITE_ROW;
    sqlite3_reset(find_scan_);
    return true;
  }

  bool begin(std::string* error) override { return exec("BEGIN", error); }
  bool commit(std::string* error) override { return exec("COMMIT", error); }
  void rollback() override { sqlite3_exec(db_, "ROLLBACK", nullptr, nullptr, nullptr); }

  bool close(std::string* error) override {
    for (sqlite3_stmt* s : insert_) sqlite3_finalize(s);
    insert_.clear();
    sqlite3_finalize(find_scan_);
    find_scan_ = nullptr;
    const int rc = sqlite3_close(db_);
    db_ = nullptr;
    if (rc != SQLITE_OK) *error = "cannot close the database";
    return rc == SQLITE_OK;
  }

  bool row(const Table& t, const Row& r, std::string* error) override {
    sqlite3_stmt* st = insert_[static_cast<size_t>(&t - tables().data())];
    sqlite3_reset(st);
    for (size_t i = 0; i < r.size(); ++i) {
      const int k = static_cast<int>(i) + 1;
      switch (r[i].kind) {
        case Value::kInt:
          sqlite3_bind_int64(st, k, r[i].i);
          break;
        case Value::kText:
          // The row outlives the step, so SQLite need not copy the text.
          sqlite3_bind_text(st, k, r[i].s.data(), static_cast<int>(r[i].s.size()), SQLITE_STATIC);
          break;
        default:
          sqlite3_bind_null(st, k);
      }
    }
    if (sqlite3_step(st) != SQLITE_DONE) {
      *error = t.name + ": " + sqlite3_errmsg(db_);
      return false;
    }
    return true;
  }

 private:
  bool fail(std::string* error) {
    *error = db_ != nullptr ? sqlite3_errmsg(db_) : "out of memory";
    return false;
  }
  bool exec(const std::string& sql, std::string* error) {
    char* msg = nullptr;
    if (sqlite3_exec(db_, sql.c_str(), nullptr, nullptr, &msg) == SQLITE_OK) return true;
    *error = msg != nullptr ? msg : "SQLite error";
    sqlite3_free(msg);
    return false;
  }

  sqlite3* db_ = nullptr;
  sqlite3_stmt* find_scan_ = nullptr;
  std::vector<sqlite3_stmt*> insert_;  // per table, in table order
};

void append_int(int64_t n, std::string* out) {
  char buf[24];
  out->append(buf, static_cast<size_t>(std::to_chars(buf, buf + sizeof buf, n).ptr - buf));
}

// Bytes that JSON text cannot hold as they are (controls, quote, backslash,
// DEL and everything from 0x80, which must be checked for UTF-8).
struct JsonPlain {
  bool plain[256];
  JsonPlain() {
    for (int c = 0; c < 256; ++c) plain[c] = c >= 0x20 && c < 0x7F && c != '"' && c != '\\';
  }
};
const JsonPlain kJsonPlain;

// Appends a value as JSON. Plain printable ASCII, by far the most common
// text, is copied as it is; anything else goes through the decoder's JSON
// string writer.
void append_json(const Value& v, std::string* out) {
  if (v.kind == Value::kInt) {
    append_int(v.i, out);
    return;
  }
  if (v.kind != Value::kText) {
    out->append("null");
    return;
  }
  const unsigned char* p = reinterpret_cast<const unsigned char*>(v.s.data());
  for (size_t i = 0, n = v.s.size(); i < n; ++i) {
    if (!kJsonPlain.plain[p[i]]) {
      out->append(invread::json_string(v.s));
      return;
    }
  }
  out->push_back('"');
  out->append(v.s);
  out->push_back('"');
}

// Appends a value as a CSV field (see csv_field).
void append_csv(const Value& v, std::string* out) {
  if (v.kind == Value::kNull) return;
  if (v.kind == Value::kInt) {
    append_int(v.i, out);
    return;
  }
  if (v.s.find_first_of(",\"\r\n") == std::string::npos) {
    out->append(v.s);
    return;
  }
  out->push_back('"');
  for (char c : v.s) {
    if (c == '"') out->push_back('"');
    out->push_back(c);
  }
  out->push_back('"');
}

// One file per table in a directory, written under temporary names and
// renamed into place when the export ends; a file's rows are buffered and
// written only when the whole file mapped.
class TextWriter : public Writer {
 public:
  explicit TextWriter(bool csv) : csv_(csv) {}
  ~TextWriter() override {
    for (auto& f : files_) {
      if (f.second.file != nullptr) {
        std::fclose(f.second.file);
        std::remove(f.second.temp.c_str());
      }
    }
  }

  bool open(const std::string& out, std::string* error) override {
    std::error_code ec;
    fs::create_directories(out, ec);
    if (ec || !fs::is_directory(out)) {
      *error = out + ": " + (ec ? ec.message() : "not a directory");
      return false;
    }
    for (const Table& t : tables()) {
      Out& o = files_[&t];
      o.final_name = (fs::path(out) / (t.name + (csv_ ? ".csv" : ".ndjson"))).string();
      o.temp = o.final_name + ".tmp";
      o.file = std::fopen(o.temp.c_str(), "wb");
      if (o.file == nullptr) {
        *error = o.temp + ": " + std::strerror(errno);
        return false;
      }
      // The text before each value of a JSON row: {"scan_id": then
      // ,"position": and so on.
      for (size_t i = 0; i < t.columns.size(); ++i) {
        o.keys.push_back((i ? ",\"" : "{\"") + t.columns[i].name + "\":");
      }
      if (csv_) {
        std::string header;
        for (size_t i = 0; i < t.columns.size(); ++i) {
          header += (i ? "," : "") + t.columns[i].name;
        }
        o.pending = header + "\r\n";
      }
    }
    return flush(error);
  }

  bool has_scan(const std::string& id, bool* found, std::string*) override {
    *found = !seen_.insert(id).second;
    return true;
  }
  bool begin(std::string*) override { return true; }
  bool commit(std::string* error) override { return flush(error); }
  void rollback() override {
    for (auto& f : files_) f.second.pending.clear();
  }

  bool close(std::string* error) override {
    for (auto& f : files_) {
      Out& o = f.second;
      const bool ok = std::fclose(o.file) == 0;
      o.file = nullptr;
      if (!ok || std::rename(o.temp.c_str(), o.final_name.c_str()) != 0) {
        *error = o.final_name + ": " + std::strerror(errno);
        std::remove(o.temp.c_str());
        return false;
      }
    }
    return true;
  }

  bool row(const Table& t, const Row& r, std::string*) override {
    if (&t != last_table_) {
      last_table_ = &t;
      last_out_ = &files_[&t];
    }
    std::string& s = last_out_->pending;
    if (csv_) {
      for (size_t i = 0; i < r.size(); ++i) {
        if (i != 0) s.push_back(',');
        append_csv(r[i], &s);
      }
      s.append("\r\n", 2);
    } else {
      const std::vector<std::string>& keys = last_out_->keys;
      for (size_t i = 0; i < r.size(); ++i) {
        s.append(keys[i]);
        append_json(r[i], &s);
      }
      s.append("}\n", 2);
    }
    return true;
  }

 private:
  struct Out {
    std::string final_name, temp, pending;
    std::vector<std::string> keys;
    std::FILE* file = nullptr;
  };
  bool flush(std::string* error) {
    for (auto& f : files_) {
      Out& o = f.second;
      if (!o.pending.empty() &&
          std::fwrite(o.pending.data(), 1, o.pending.size(), o.file) != o.pending.size()) {
        *error = o.temp + ": " + std::strerror(errno);
        return false;
      }
      o.pending.clear();
    }
    return true;
  }

  bool csv_;
  std::map<const Table*, Out> files_;
  const Table* last_table_ = nullptr;
  Out* last_out_ = nullptr;
  std::set<std::string> seen_;
};

int usage_error(const std::string& what) {
  std::fprintf(
      stderr, "usage: quillscan-inv export [--format sqlite|ndjson|csv] -o OUT FILE|DIR|-...: %s\n",
      what.c_str());
  return 2;
}

}  // namespace

// The decoder carries the version of the agent it was built with.
const char kVersion[] = "15.10.19.0";

std::string csv_field(const Value& v) {
  std::string out;
  append_csv(v, &out);
  return out;
}

int cmd_export(const std::vector<std::string>& args) {
  std::string format = "sqlite", out;
  std::vector<std::string> inputs;
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& a = args[i];
    if ((a == "--format" || a == "-f" || a == "-o" || a == "--output") && i + 1 < args.size()) {
      (a == "-o" || a == "--output" ? out : format) = args[++i];
    } else if (a.compare(0, 9, "--format=") == 0) {
      format = a.substr(9);
    } else if (a.compare(0, 9, "--output=") == 0) {
      out = a.substr(9);
    } else if (a.size() > 1 && a[0] == '-') {
      return usage_error("unknown option " + a);
    } else {
      inputs.push_back(a);
    }
  }
  if (format != "sqlite" && format != "ndjson" && format != "csv") {
    return usage_error("unknown format " + format);
  }
  if (out.empty()) return usage_error("no output (-o) given");
  if (inputs.empty()) return usage_error("no input file");

  std::string error;
  std::vector<std::string> files;
  if (!expand_inputs(inputs, &files, &error)) {
    std::fprintf(stderr, "quillscan-inv: %s\n", error.c_str());
    return 2;
  }
  std::unique_ptr<Writer> writer;
  if (format == "sqlite") {
    writer.reset(new SqliteWriter());
  } else {
    writer.reset(new TextWriter(format == "csv"));
  }
  if (!writer->open(out, &error)) {
    std::fprintf(stderr, "quillscan-inv: %s: %s\n", out.c_str(), error.c_str());
    return 2;
  }
  size_t exported = 0, present = 0, failed = 0;
  for (const std::string& f : files) {
    // Each file is decoded whole before anything of it is written, so a
    // damaged file leaves no row behind.
    LoadedScan scan;
    bool found = false;
    bool ok = load_scan(f, &scan, &error) && writer->has_scan(scan.file.scan_id, &found, &error);
    if (ok && found) {
      ++present;
      continue;
    }
    if (ok) {
      ok = writer->begin(&error);
      if (ok && (!map_rows(scan.file, scan.documents(), writer.get(), &error) ||
                 !writer->commit(&error))) {
        writer->rollback();
        ok = false;
      }
    }
    if (!ok) {
      std::fflush(stdout);
      std::fprintf(stderr, "quillscan-inv: %s: %s\n", f.c_str(), error.c_str());
      ++failed;
      continue;
    }
    ++exported;
  }
  if (!writer->close(&error)) {
    std::fprintf(stderr, "quillscan-inv: %s\n", error.c_str());
    return 2;
  }
  std::printf("%s: %zu exported, %zu already present, %zu failed\n", out.c_str(), exported, present,
              failed);
  return failed == 0 ? 0 : 1;
}

}  // namespace invtab
