#include "simulator/lib/Fault.h"

#include <cerrno>

#include "simulator/lib/EntryPoints.h"

namespace qzsim {

namespace {

enum class Argument { None, Number, Errno, Text };

struct ActionForm {
    std::string_view word;
    Action action;
    Argument argument;
    bool ofFunction;
    bool ofLibrary;
    bool ofFile;
};

constexpr ActionForm actionForms[] = {
    {"fail", Action::Fail, Argument::Number, true, false, false},
    {"fail", Action::Fail, Argument::Errno, false, false, true},
    {"refuse", Action::Refuse, Argument::Errno, false, false, true},
    {"answer", Action::Answer, Argument::Text, true, false, true},
    {"delay", Action::Delay, Argument::Number, true, true, true},
    {"hang", Action::Hang, Argument::None, true, true, true},
    {"crash", Action::Crash, Argument::None, true, true, false},
    {"signal", Action::Signal, Argument::Number, true, true, false},
    {"exit", Action::Exit, Argument::Number, true, true, false},
    {"print", Action::Print, Argument::Text, true, true, false},
    {"fork", Action::Fork, Argument::Number, true, true, false},
    {"spawn", Action::Spawn, Argument::Number, true, true, false},
    {"absent", Action::Absent, Argument::None, false, true, false},
    {"text-file", Action::TextFile, Argument::None, false, true, false},
    {"other-architecture", Action::OtherArchitecture, Argument::None, false, true, false},
    {"omit", Action::Omit, Argument::Text, false, true, false},
    {"crash-at-exit", Action::CrashAtExit, Argument::None, false, true, false},
    {"crash-at-unload", Action::CrashAtUnload, Argument::None, false, true, false},
    {"crash-without-shutdown", Action::CrashWithoutShutdown, Argument::None, false, true, false},
};

const ActionForm* findForm(std::string_view word, TargetKind kind) {
    for (const auto& form : actionForms) {
        const bool fits = kind == TargetKind::Function  ? form.ofFunction
                          : kind == TargetKind::Library ? form.ofLibrary
                                                        : form.ofFile;
        if (fits && form.word == word)
            return &form;
    }
    return nullptr;
}

/// "card0/hwmon/hwmon3/temp1_input" is short for the path that the program opens.
std::string fullFilePath(const std::string& target) {
    if (target.rfind("/sys/", 0) == 0)
        return target;
    const auto slash = target.find('/');
    return "/sys/class/drm/" + target.substr(0, slash) + "/device" + target.substr(slash);
}

void setTarget(Fault& fault, std::string_view text, const Place& place) {
    const auto mark = text.find('#');
    fault.target = text.substr(0, mark);
    if (mark != std::string_view::npos) {
        const auto device = parseNumber(text.substr(mark + 1));
        if (!device || *device < 0 || *device > 1000)
            throw DescriptionError(place, "not a device number: " + std::string(text));
        fault.device = static_cast<int>(*device);
    }
    if (isKnownFunction(fault.target)) {
        fault.kind = TargetKind::Function;
    } else if (findLibrary(fault.target) != nullptr) {
        fault.kind = TargetKind::Library;
    } else if (fault.target.rfind("/sys/", 0) == 0 ||
               (fault.target.rfind("card", 0) == 0 && fault.target.find('/') != std::string::npos)) {
        fault.kind = TargetKind::File;
        fault.target = fullFilePath(fault.target);
    } else {
        throw DescriptionError(place, "neither a function, a library nor a file: " + fault.target);
    }
    if (fault.device && fault.kind != TargetKind::Function)
        throw DescriptionError(place, "only a function's fault can be one device's: " + std::string(text));
}

void setArgument(Fault& fault, Argument form, const std::string& word, const Place& place) {
    if (form == Argument::Number) {
        const auto number = parseNumber(word);
        if (!number || (fault.action != Action::Fail && *number < 0))
            throw DescriptionError(place, "not a number that can be used here: " + word);
        fault.number = *number;
    } else if (form == Argument::Errno) {
        const auto number = parseErrno(word);
        if (!number)
            throw DescriptionError(place, "not an errno: " + word);
        fault.number = *number;
    } else {
        const auto text = unquoted(word);
        if (!text)
            throw DescriptionError(place, "invalid escape sequence: " + word);
        fault.text = *text;
    }
    const LibraryInfo* library = findLibrary(fault.target);
    if (fault.action == Action::Omit && library != nullptr) {
        for (const auto function : library->functions)
            if (function == fault.text)
                return;
        throw DescriptionError(place, fault.target + " has no function " + fault.text);
    }
}

void setCalls(Fault& fault, const std::string& word, const std::string& number, const Place& place) {
    const auto call = parseNumber(number);
    if (!call || *call < 1)
        throw DescriptionError(place, "calls are counted from 1: " + number);
    if (word == "at" || word == "from")
        fault.first = static_cast<std::uint64_t>(*call);
    if (word == "at" || word == "until")
        fault.last = static_cast<std::uint64_t>(*call);
    if (word != "at" && word != "from" && word != "until")
        throw DescriptionError(place, R"(neither "at", "from" nor "until": )" + word);
}

} // namespace

std::optional<int> parseErrno(std::string_view text) {
    const struct {
        std::string_view name;
        int number;
    } names[] = {
        {"EPERM", EPERM},           {"ENOENT", ENOENT},   {"EINTR", EINTR},        {"EIO", EIO},
        {"ENXIO", ENXIO},           {"EAGAIN", EAGAIN},   {"ENOMEM", ENOMEM},      {"EACCES", EACCES},
        {"EBUSY", EBUSY},           {"ENODEV", ENODEV},   {"EISDIR", EISDIR},      {"EINVAL", EINVAL},
        {"EOPNOTSUPP", EOPNOTSUPP}, {"ENODATA", ENODATA}, {"ETIMEDOUT", ETIMEDOUT}};
    for (const auto& entry : names)
        if (entry.name == text)
            return entry.number;
    const auto number = parseNumber(text);
    return number && *number > 0 && *number < 4096 ? std::optional(static_cast<int>(*number)) : std::nullopt;
}

Fault parseFault(const Entry& entry) {
    Fault fault;
    setTarget(fault, entry.key, entry.place);
    const auto words = splitWords(entry.value);
    const ActionForm* form = words.empty() ? nullptr : findForm(words[0], fault.kind);
    if (form == nullptr) {
        throw DescriptionError(entry.place,
                               "not something that can happen to " + fault.target + ": " + entry.value);
    }
    fault.action = form->action;
    std::size_t next = 1;
    if (form->argument != Argument::None) {
        if (words.size() < 2)
            throw DescriptionError(entry.place, "\"" + words[0] + "\" needs an argument");
        setArgument(fault, form->argument, words[next++], entry.place);
    }
    if ((words.size() - next) % 2 != 0)
        throw DescriptionError(entry.place, "a word too many or too few: " + entry.value);
    for (; next < words.size(); next += 2)
        setCalls(fault, words[next], words[next + 1], entry.place);
    if (fault.first > fault.last)
        throw DescriptionError(entry.place, "the last call comes before the first: " + entry.value);
    return fault;
}

} // namespace qzsim
