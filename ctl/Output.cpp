// SPDX-License-Identifier: Apache-2.0
// The text forms and the JSON form of a result.
#include "ctl/Output.h"

#include "platform/zell/OneLine.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <utility>

namespace Vestrel {

namespace {

constexpr std::size_t gap = 2; // blanks between two columns

// What people see of a member: strings as they are, lists with commas, other values as in JSON.
std::string textOf(const Json& value) {
    if (value.is_string()) {
        return Zell::oneLine(value.get_ref<const std::string&>());
    }
    if (value.is_null()) {
        return {};
    }
    if (!value.is_array()) {
        return value.dump();
    }
    std::string text;
    for (const Json& member : value) {
        text += (text.empty() ? "" : ", ") + textOf(member);
    }
    return text;
}

std::string cell(const Json& row, const Column& column) {
    const auto member = row.find(column.member);
    return member == row.end() ? std::string() : textOf(*member);
}

// Continuation bytes of UTF-8 take no place.
std::size_t widthOf(const std::string& text) {
    return static_cast<std::size_t>(std::ranges::count_if(
        text, [](char c) { return (static_cast<unsigned char>(c) & 0xc0U) != 0x80U; }));
}

std::string padded(const std::string& text, std::size_t width) {
    return text + std::string(width - std::min(widthOf(text), width), ' ');
}

void withoutTrailingBlanks(std::ostream& out, std::string line) {
    line.erase(line.find_last_not_of(' ') + 1);
    out << line << '\n';
}

std::vector<std::size_t> widths(const std::vector<Column>& columns, const Json& rows) {
    std::vector<std::size_t> widths;
    for (const Column& column : columns) {
        std::size_t width = widthOf(column.heading);
        for (const Json& row : rows) {
            width = std::max(width, widthOf(cell(row, column)));
        }
        widths.push_back(width + gap);
    }
    return widths;
}

} // namespace

bool Output::shownAsJson(const std::string& name, const Json& rows) {
    if (isJson_) {
        Json result = Json::object();
        result[name] = rows;
        out_ << jsonText(std::move(result)) << '\n';
    }
    return isJson_;
}

void Output::table(const std::string& name, const std::vector<Column>& columns, const Json& rows) {
    if (shownAsJson(name, rows)) {
        return;
    }
    const std::vector<std::size_t> widthOfColumn = widths(columns, rows);
    std::string headings;
    for (std::size_t i = 0; i < columns.size(); ++i) {
        headings += padded(columns[i].heading, widthOfColumn[i]);
    }
    withoutTrailingBlanks(out_, headings);
    for (const Json& row : rows) {
        std::string line;
        for (std::size_t i = 0; i < columns.size(); ++i) {
            line += padded(cell(row, columns[i]), widthOfColumn[i]);
        }
        withoutTrailingBlanks(out_, line);
    }
}

void Output::tables(const std::vector<Table>& tables) {
    Json result = Json::object();
    bool isFirst = true;
    for (const Table& each : tables) {
        if (isJson_) {
            result[each.name] = each.rows;
        } else if (!each.rows.empty()) {
            out_ << (std::exchange(isFirst, false) ? "" : "\n");
            table(each.name, each.columns, each.rows);
        }
    }
    if (isJson_) {
        out_ << jsonText(std::move(result)) << '\n';
    }
}

void Output::records(const std::string& name, const std::vector<Column>& columns,
                     const Json& rows) {
    if (shownAsJson(name, rows)) {
        return;
    }
    std::size_t width = 0;
    for (const Column& column : columns) {
        width = std::max(width, widthOf(column.heading) + std::size_t{1} + gap);
    }
    bool isFirst = true;
    for (const Json& row : rows) {
        out_ << (isFirst ? "" : "\n");
        isFirst = false;
        for (const Column& column : columns) {
            if (const std::string text = cell(row, column); !text.empty()) {
                out_ << padded(column.heading + ":", width) << text << '\n';
            }
        }
    }
}

void Output::lines(const std::string& name, const Json& rows,
                   const std::vector<std::string>& lines) {
    if (shownAsJson(name, rows)) {
        return;
    }
    for (const std::string& line : lines) {
        out_ << Zell::oneLine(line) << '\n';
    }
}

void Output::lines(const std::string& name, const Json& rows,
                   const std::function<std::string(const Json& row)>& lineOf) {
    std::vector<std::string> texts;
    std::ranges::transform(rows, std::back_inserter(texts), lineOf);
    lines(name, rows, texts);
}

void Output::complaint(std::string_view text) {
    err_ << "vestrelctl: " << Zell::oneLine(text) << '\n';
}

} // namespace Vestrel
