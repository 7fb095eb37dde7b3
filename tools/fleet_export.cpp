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
    for (auto& s : insert_) sqlite3_finalize(s.second);
    sqlite3_finalize(find_scan_);
    if (db_ != nullptr) sqlite3_close(db_);
  }

  bool open(const std::string& out, std::string* error) override {
    if (sqlite3_open_v2(out.c_str(), &db_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr) !=
        SQLITE_OK) {
      return fail(error);
    }
    sqlite3_busy_timeout(db_, 5000);
    // Write-ahead logging: a commit per file without a sync each time; a
    // crash still leaves every committed file and nothing of the others.
    std::string sql = "PRAGMA journal_mode=WAL; PRAGMA synchronous=NORMAL; BEGIN;";
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
      insert_[&t] = st;
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
    for (auto& s : insert_) sqlite3_finalize(s.second);
    insert_.clear();
    sqlite3_finalize(find_scan_);
    find_scan_ = nullptr;
    const int rc = sqlite3_close(db_);
    db_ = nullptr;
    if (rc != SQLITE_OK) *error = "cannot close the database";
    return rc == SQLITE_OK;
  }

  bool row(const Table& t, const Row& r, std::string* error) override {
    sqlite3_stmt* st = insert_[&t];
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
  std::map<const Table*, sqlite3_stmt*> insert_;
};

// Appends a value as JSON. Plain printable ASCII, by far the most common
// text, is copied as it is; anything else goes through the decoder's JSON
// string writer.
void append_json(const Value& v, std::string* out) {
  if (v.kind == Value::kInt) {
    char buf[24];
    out->append(buf, static_cast<size_t>(std::to_chars(buf, buf + sizeof buf, v.i).ptr - buf));
    return;
  }
  if (v.kind != Value::kText) {
    out->append("null");
    return;
  }
  for (unsigned char c : v.s) {
    if (c < 0x20 || c >= 0x7F || c == '"' || c == '\\') {
      out->append(invread::json_string(v.s));
      return;
    }
  }
  out->push_back('"');
  out->append(v.s);
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
      last_pending_ = &files_[&t].pending;
    }
    std::string& s = *last_pending_;
    if (csv_) {
      for (size_t i = 0; i < r.size(); ++i) {
        if (i != 0) s += ",";
        s += csv_field(r[i]);
      }
      s += "\r\n";
    } else {
      s += '{';
      for (size_t i = 0; i < r.size(); ++i) {
        if (i != 0) s += ',';
        s += '"';
        s += t.columns[i].name;
        s += "\":";
        append_json(r[i], &s);
      }
      s += "}\n";
    }
    return true;
  }

 private:
  struct Out {
    std::string final_name, temp, pending;
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
  std::string* last_pending_ = nullptr;
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
  if (v.kind == Value::kNull) return "";
  if (v.kind == Value::kInt) return std::to_string(v.i);
  if (v.s.find_first_of(",\"\r\n") == std::string::npos) return v.s;
  std::string out = "\"";
  for (char c : v.s) {
    if (c == '"') out += '"';
    out += c;
  }
  return out + "\"";
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
