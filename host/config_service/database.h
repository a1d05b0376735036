// SQLite, with owned handles and failures as exceptions.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace host
{

// Every failure of the database is thrown as this, except a lack of memory, which is
// std::bad_alloc. One after which no transaction can succeed ends the process.
class DatabaseError : public std::runtime_error
{
 public:
    using std::runtime_error::runtime_error;
};

class Database
{
 public:
    // Opens the file, and creates it when it is not there.
    explicit Database(const std::string& file);

    // Runs a statement without parameters to its end.
    void run(const char* sql);

    sqlite3* get() const { return handle_.get(); }

 private:
    struct Closer {
        void operator()(sqlite3* database) const { sqlite3_close_v2(database); }
    };
    std::unique_ptr<sqlite3, Closer> handle_;
};

// A prepared statement. Parameters and columns count as SQLite counts them: from 1 and from 0.
class Statement
{
 public:
    Statement(const Database& database, std::string_view sql);

    Statement& bind(int parameter, std::string_view text);
    Statement& bind(int parameter, int64_t number);
    Statement& bind(int parameter, std::optional<int32_t> number);

    // Advances to the next row; false at the end.
    bool step();

    // The text of a column that is not null.
    std::string text(int column) const;
    int64_t number(int column) const;
    std::optional<int32_t> optional_number(int column) const;

 private:
    void check(int result) const;

    struct Finalizer {
        void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
    };
    std::unique_ptr<sqlite3_stmt, Finalizer> handle_;
};

// `commit` keeps everything written during its lifetime; otherwise it is undone.
class Transaction
{
 public:
    explicit Transaction(Database& database);
    ~Transaction();
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;

    void commit();

 private:
    Database& database_;
    Statement rollback_;  // prepared beforehand: that needs memory
};

}  // namespace host
