#include "host/config_service/database.h"

#include <cstdlib>
#include <iostream>
#include <new>

namespace host
{

namespace
{

constexpr int BUSY_TIMEOUT_MS = 2000;

[[noreturn]] void end_service(const char* what, const char* reason)
{
    std::cerr << "config_service: " << what << ": " << reason << std::endl;
    std::_Exit(EXIT_FAILURE);
}

[[noreturn]] void fail(int result, const char* reason)
{
    if (result == SQLITE_NOMEM) {
        throw std::bad_alloc();
    }
    if (result == SQLITE_PROTOCOL) {
        // A lock could not be released: SQLite then refuses every transaction until a new start.
        end_service("a lock of the database is stuck", reason);
    }
    throw DatabaseError(reason);
}

}  // namespace

Database::Database(const std::string& file)
{
    sqlite3* handle = nullptr;
    const int result =
        sqlite3_open_v2(file.c_str(), &handle, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
    handle_.reset(handle);
    if (result != SQLITE_OK) {
        fail(result, sqlite3_errmsg(handle));
    }
    sqlite3_busy_timeout(handle, BUSY_TIMEOUT_MS);
}

void Database::run(const char* sql)
{
    Statement statement(*this, sql);
    while (statement.step()) {
    }
}

Statement::Statement(const Database& database, std::string_view sql)
{
    sqlite3_stmt* handle = nullptr;
    const int result = sqlite3_prepare_v2(database.get(), sql.data(), static_cast<int>(sql.size()),
                                          &handle, nullptr);
    handle_.reset(handle);
    if (result != SQLITE_OK) {
        fail(result, sqlite3_errmsg(database.get()));
    }
}

Statement& Statement::bind(int parameter, std::string_view text)
{
    check(sqlite3_bind_text(handle_.get(), parameter, text.data(), static_cast<int>(text.size()),
                            SQLITE_TRANSIENT));
    return *this;
}

Statement& Statement::bind(int parameter, int64_t number)
{
    check(sqlite3_bind_int64(handle_.get(), parameter, number));
    return *this;
}

Statement& Statement::bind(int parameter, std::optional<int32_t> number)
{
    check(number ? sqlite3_bind_int(handle_.get(), parameter, *number)
                 : sqlite3_bind_null(handle_.get(), parameter));
    return *this;
}

bool Statement::step()
{
    const int result = sqlite3_step(handle_.get());
    if (result != SQLITE_ROW && result != SQLITE_DONE) {
        check(result);
    }
    return result == SQLITE_ROW;
}

std::string Statement::text(int column) const
{
    const unsigned char* const bytes = sqlite3_column_text(handle_.get(), column);
    if (bytes == nullptr) {
        throw std::bad_alloc();
    }
    return {reinterpret_cast<const char*>(bytes),
            static_cast<size_t>(sqlite3_column_bytes(handle_.get(), column))};
}

int64_t Statement::number(int column) const
{
    return sqlite3_column_int64(handle_.get(), column);
}

std::optional<int32_t> Statement::optional_number(int column) const
{
    if (sqlite3_column_type(handle_.get(), column) == SQLITE_NULL) {
        return std::nullopt;
    }
    return sqlite3_column_int(handle_.get(), column);
}

void Statement::check(int result) const
{
    if (result != SQLITE_OK) {
        fail(result, sqlite3_errmsg(sqlite3_db_handle(handle_.get())));
    }
}

Transaction::Transaction(Database& database) : database_(database), rollback_(database, "ROLLBACK")
{
    database_.run("BEGIN IMMEDIATE");
}

Transaction::~Transaction()
{
    // SQLite may have undone the transaction itself, as after some failures, or it is committed.
    if (sqlite3_get_autocommit(database_.get()) != 0) {
        return;
    }
    try {
        rollback_.step();
    } catch (const std::exception& failure) {
        // To continue would show half a rule and prevent every later one from being written.
        end_service("cannot undo a transaction", failure.what());
    }
}

void Transaction::commit()
{
    database_.run("COMMIT");
}

}  // namespace host
