#include <algorithm>
#include <sqlite3.h>
#include <stdexcept>

#include "stores.h"

namespace qx::compare {

namespace {

void Check(int result, sqlite3* connection) {
    if (result != SQLITE_OK && result != SQLITE_ROW && result != SQLITE_DONE) {
        throw std::runtime_error(sqlite3_errmsg(connection));
    }
}

class Statement {
  public:
    Statement(sqlite3* connection, const char* text) : connection_(connection) {
        Check(sqlite3_prepare_v3(connection, text, -1, SQLITE_PREPARE_PERSISTENT, &statement_, nullptr), connection);
    }
    ~Statement() { sqlite3_finalize(statement_); }
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    void Bind(int column, std::string_view bytes) {
        Check(sqlite3_bind_blob(statement_, column, bytes.data(), static_cast<int>(bytes.size()), SQLITE_STATIC),
              connection_);
    }

    // True when there is a row; once there is none, the statement is ready to be used again.
    bool Step() {
        const int result = sqlite3_step(statement_);
        if (result != SQLITE_ROW) {
            Reset();
        }
        Check(result, connection_);
        return result == SQLITE_ROW;
    }

    std::string_view FirstColumn() {
        const auto* bytes = static_cast<const char*>(sqlite3_column_blob(statement_, 0));
        return {bytes, static_cast<size_t>(sqlite3_column_bytes(statement_, 0))};
    }

    void Reset() { sqlite3_reset(statement_); }

  private:
    sqlite3* connection_;
    sqlite3_stmt* statement_ = nullptr;
};

class Connection {
  public:
    explicit Connection(const StoreSettings& settings) {
        const int result = sqlite3_open((settings.Directory + "/records").c_str(), &connection_);
        if (result != SQLITE_OK) {
            sqlite3_close(connection_);
            throw std::runtime_error(sqlite3_errstr(result));
        }
        sqlite3_busy_timeout(connection_, 60'000);
        Execute("PRAGMA journal_mode = WAL");
        Execute("PRAGMA synchronous = OFF");
        // Advised: a cache for all records, as far as a gigabyte goes; and no rowid between key and data of short ones.
        if (settings.Size == Sizing::Advised) {
            const uint64_t cache = std::min<uint64_t>(2 * settings.Records.PayloadBytes(), 1U << 30);
            Execute("PRAGMA cache_size = -" + std::to_string(cache / 1024));
        }
        constexpr uint32_t kLongRecord = 1000;
        Execute(std::string("CREATE TABLE IF NOT EXISTS records (key BLOB PRIMARY KEY, data BLOB)") +
                (settings.Records.DataBytes < kLongRecord ? " WITHOUT ROWID" : ""));
    }
    ~Connection() { sqlite3_close(connection_); }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    sqlite3* Get() { return connection_; }

  private:
    void Execute(const std::string& text) {
        Check(sqlite3_exec(connection_, text.c_str(), nullptr, nullptr, nullptr), connection_);
    }

    sqlite3* connection_ = nullptr;
};

// A connection of its own; every statement is a transaction.
class SqliteAccess final : public Access {
  public:
    explicit SqliteAccess(const StoreSettings& settings)
        : connection_(settings),
          get_(connection_.Get(), "SELECT data FROM records WHERE key = ?"),
          put_(connection_.Get(), "INSERT OR REPLACE INTO records VALUES (?, ?)"),
          delete_(connection_.Get(), "DELETE FROM records WHERE key = ?"),
          walk_(connection_.Get(), "SELECT key FROM records") {}

    bool Get(std::string_view key, std::string& into) override {
        get_.Bind(1, key);
        const bool found = get_.Step();
        if (found) {
            into = get_.FirstColumn();
            get_.Reset();
        }
        return found;
    }

    void Put(std::string_view key, std::string_view data) override {
        put_.Bind(1, key);
        put_.Bind(2, data);
        put_.Step();
    }

    bool Delete(std::string_view key) override {
        delete_.Bind(1, key);
        delete_.Step();
        return sqlite3_changes(connection_.Get()) == 1;
    }

    WalkTotals Walk() override {
        WalkTotals totals;
        while (walk_.Step()) {
            ++totals.Keys;
            totals.KeyBytes += walk_.FirstColumn().size();
        }
        return totals;
    }

  private:
    Connection connection_;
    Statement get_;
    Statement put_;
    Statement delete_;
    Statement walk_;
};

class SqliteStore final : public Store {
  public:
    explicit SqliteStore(const StoreSettings& settings) : settings_(settings), keptOpen_(settings) {}

    std::unique_ptr<Access> Connect() override { return std::make_unique<SqliteAccess>(settings_); }

  private:
    const StoreSettings settings_;
    Connection keptOpen_;
};

}  // namespace

std::unique_ptr<Store> OpenSqlite(const StoreSettings& settings) {
    return std::make_unique<SqliteStore>(settings);
}

}  // namespace qx::compare
