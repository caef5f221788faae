// SPDX-License-Identifier: Apache-2.0
// The one place where results become text for people or JSON for programs.
#pragma once

#include "survey/JsonText.h"

#include <functional>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

namespace Vestrel {

// A member of a result's rows, and the heading under which people see it.
struct Column {
    std::string member;
    std::string heading;
};

// One of several results that are shown together.
struct Table {
    std::string name;
    std::vector<Column> columns;
    Json rows;
};

// Each verb shows one result: a name and an array of objects, its rows. As JSON it is one line with
// one object that holds the array under that name. As text it takes one of the three forms; control
// characters come out as \xHH, so that a row never breaks its line.
class Output {
public:
    Output(std::ostream& out, std::ostream& err) : out_(out), err_(err) {}

    void jsonIs(bool isJson) { isJson_ = isJson; }

    bool isJson() const { return isJson_; }

    // Aligned columns under their headings; nothing but the headings when there are no rows.
    void table(const std::string& name, const std::vector<Column>& columns, const Json& rows);

    // Several of them, with an empty line between two; those without rows are left out of the text.
    // As JSON one object that holds each array under its name.
    void tables(const std::vector<Table>& tables);

    // One paragraph a row, one line a column; a member that is absent or empty has no line.
    void records(const std::string& name, const std::vector<Column>& columns, const Json& rows);

    // One line a row, each of the same place.
    void lines(const std::string& name, const Json& rows, const std::vector<std::string>& lines);

    // The same, where a row has all that its line says.
    void lines(const std::string& name, const Json& rows,
               const std::function<std::string(const Json& row)>& lineOf);

    // Hands on what was shown so far; false when it cannot be written.
    bool flush() { return static_cast<bool>(out_.flush()); }

    // One line on standard error, in either form.
    void complaint(std::string_view text);

private:
    bool shownAsJson(const std::string& name, const Json& rows);
    std::ostream& out_;
    std::ostream& err_;
    bool isJson_ = false;
};

} // namespace Vestrel
