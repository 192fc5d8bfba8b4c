// Records as JSON and back, for results from a child process. A record lists its members once:
//     template <class Visit> void walk(Visit visit) { visit("name", name); ... }
#pragma once

#include <type_traits>

#include <QJsonArray>
#include <QJsonObject>
#include <QString>
#include <QStringList>
#include <QVector>

namespace doctor {

template <class Value>
QJsonValue toJsonValue(const Value& value);

template <class Record>
QJsonObject toJson(Record record) {
    QJsonObject object;
    record.walk([&object](const char* name, const auto& member) {
        object.insert(QLatin1String(name), toJsonValue(member));
    });
    return object;
}

template <class Value>
void fromJsonValue(const QJsonValue& json, Value& value);

/// Members missing from the object keep their initial values.
template <class Record>
Record fromJson(const QJsonObject& object) {
    Record record;
    record.walk([&object](const char* name, auto& member) {
        const auto found = object.find(QLatin1String(name));
        if (found != object.end())
            fromJsonValue(*found, member);
    });
    return record;
}

template <class Record>
QVector<Record> fromJson(const QVector<QJsonObject>& objects) {
    QVector<Record> records;
    for (const QJsonObject& object : objects)
        records.append(fromJson<Record>(object));
    return records;
}

template <class Value>
struct IsVector : std::false_type {};
template <class Item>
struct IsVector<QVector<Item>> : std::true_type {};
template <>
struct IsVector<QStringList> : std::true_type {};

template <class Value>
QJsonValue toJsonValue(const Value& value) {
    if constexpr (IsVector<Value>::value) {
        QJsonArray array;
        for (const auto& item : value)
            array.append(toJsonValue(item));
        return array;
    } else if constexpr (std::is_same_v<Value, bool> || std::is_same_v<Value, QString>) {
        return value;
    } else if constexpr (std::is_arithmetic_v<Value>) {
        static_assert(sizeof(Value) <= 4 || std::is_floating_point_v<Value>, "JSON numbers have 53 bits");
        return static_cast<double>(value);
    } else {
        return toJson(value);
    }
}

template <class Value>
void fromJsonValue(const QJsonValue& json, Value& value) {
    if constexpr (IsVector<Value>::value) {
        const QJsonArray array = json.toArray();
        for (const QJsonValue& item : array) {
            value.append(typename Value::value_type());
            fromJsonValue(item, value.last());
        }
    } else if constexpr (std::is_same_v<Value, bool>) {
        value = json.toBool();
    } else if constexpr (std::is_same_v<Value, QString>) {
        value = json.toString();
    } else if constexpr (std::is_arithmetic_v<Value>) {
        value = static_cast<Value>(json.toDouble());
    } else {
        value = fromJson<Value>(json.toObject());
    }
}

} // namespace doctor
