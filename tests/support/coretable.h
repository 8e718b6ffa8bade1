#pragma once

// A data table in one line: columns<int, QString>("count", "text") in the _data()
// function, auto [count, text] = row<int, QString>("count", "text") in the test.

#include <QTest>

#include <tuple>

template <typename... T, typename... N>
void columns(N... names)
{
    (QTest::addColumn<T>(names), ...);
}
template <typename... T, typename... N>
std::tuple<T...> row(N... names)
{
    return std::tuple<T...>(*static_cast<T*>(QTest::qData(names, qMetaTypeId<T>()))...);
}
