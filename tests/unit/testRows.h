// The tables of data-driven tests.
#pragma once

#include <QTest>

/// Declares a table's columns. Returns a function that adds a row: its name, then a value for each column.
template <class... Values, class... Names>
auto testColumns(Names... names) {
    static_assert(sizeof...(Values) == sizeof...(Names));
    (QTest::addColumn<Values>(names), ...);
    return [](const char* row, const Values&... values) { (QTest::newRow(row) << ... << values); };
}
