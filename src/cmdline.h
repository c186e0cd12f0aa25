// SPDX-License-Identifier: MIT
// The option parser: long options with an optional short letter, typed values with defaults, help
// and error texts. Owned by main, used once. Waits for nothing; asking for an option that was not
// declared, or for another type than it was declared with, throws std::logic_error.
//
//     --name=value   --name value   -n value   --flag   -f   -fg (flags only)
//
// Words that are no option are ignored. Of an option given twice the last value counts.
#ifndef TOLVANEV_CMDLINE_H
#define TOLVANEV_CMDLINE_H

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

namespace cmdline {

namespace detail {

// The name under which the help text shows a value's type.
template <typename T>
std::string typeName() {
    if constexpr (std::is_same_v<T, std::string>)
        return "string";
    else if constexpr (std::is_same_v<T, unsigned short>)
        return "unsigned short";
    else
        static_assert(!sizeof(T), "no option has this type yet");
}

// False, value untouched, unless the whole text is a value: for a number decimal digits in range,
// without sign or blank.
template <typename T>
bool fromText(const std::string& text, T& value) {
    if constexpr (std::is_same_v<T, std::string>) {
        value = text;
        return true;
    } else {
        const char* const end = text.data() + text.size();
        T number{};
        const auto [stop, error] = std::from_chars(text.data(), end, number);
        if (error != std::errc() || stop != end)
            return false;
        value = number;
        return true;
    }
}

// One declared option. The base is a flag, which takes no value.
class Option {
  public:
    Option(const std::string& name, char short_name, const std::string& description)
        : name_(name), short_name_(short_name), description_(description) {}
    Option(const Option&) = delete;
    Option& operator=(const Option&) = delete;
    virtual ~Option() = default;

    virtual bool takesValue() const { return false; }
    virtual bool required() const { return false; }
    virtual bool set(const std::string&) { return false; }  // false = not a value of this option
    virtual std::string description() const { return description_; }
    virtual std::string synopsis() const { return "--" + name_; }

    void mark() { given_ = true; }
    bool given() const { return given_; }
    const std::string& name() const { return name_; }
    char shortName() const { return short_name_; }  // 0 = none

  private:
    std::string name_;
    char short_name_;
    std::string description_;
    bool given_ = false;
};

// An option with a value of type T.
template <typename T>
class ValueOption : public Option {
  public:
    ValueOption(const std::string& name, char short_name, const std::string& description,
                bool required, const T& initial)
        : Option(name, short_name, description),
          required_(required),
          initial_(initial),
          value_(initial) {}

    bool takesValue() const override { return true; }
    bool required() const override { return required_; }
    bool set(const std::string& text) override { return fromText(text, value_); }
    std::string synopsis() const override {
        return Option::synopsis().append("=").append(typeName<T>());
    }
    std::string description() const override {
        std::ostringstream text;
        text << Option::description() << " (" << typeName<T>();
        if (!required_)
            text << " [=" << initial_ << "]";
        text << ")";
        return text.str();
    }
    const T& value() const { return value_; }

  private:
    bool required_;
    T initial_;
    T value_;
};

}  // namespace detail

class parser {
  public:
    // Declares a flag; short_name 0 for none.
    void add(const std::string& name, char short_name, const std::string& description) {
        declare(std::make_unique<detail::Option>(name, short_name, description));
    }

    // Declares an option with a value; initial counts when it is not required and not given.
    template <typename T>
    void add(const std::string& name, char short_name, const std::string& description,
             bool required = true, const T& initial = T()) {
        declare(std::make_unique<detail::ValueOption<T>>(name, short_name, description, required,
                                                         initial));
    }

    // Reads the command line; false on any error, see error_full.
    bool parse(int argc, const char* const argv[]) {
        errors_.clear();
        if (argc < 1) {
            errors_.push_back("argument number must be longer than 0");
            return false;
        }
        program_name_ = argv[0];
        const std::vector<std::string> words(argv + 1, argv + argc);
        for (size_t i = 0; i < words.size(); ++i) {
            if (words[i].starts_with("--"))
                parseLong(words, i);
            else if (words[i].starts_with('-'))
                parseShort(words, i);
        }
        for (const auto& option : options_) {
            if (option->required() && !option->given())
                errors_.push_back("need option: --" + option->name());
        }
        return errors_.empty();
    }

    bool exist(const std::string& name) const { return declared(name).given(); }

    template <typename T>
    const T& get(const std::string& name) const {
        const auto* const option = dynamic_cast<const detail::ValueOption<T>*>(&declared(name));
        if (!option)
            throw std::logic_error("option has another type: --" + name);
        return option->value();
    }

    // Every error text in order, each followed by a line feed.
    std::string error_full() const {
        std::string text;
        for (const std::string& error : errors_)
            text += error + "\n";
        return text;
    }

    // The help text.
    std::string usage() const {
        std::string required;
        size_t longest = 0;
        for (const auto& option : options_) {
            if (option->required())
                required += option->synopsis() + " ";
            longest = std::max(longest, option->name().size());
        }
        std::string text =
            "usage: " + program_name_ + " " + required + "[options] ... \noptions:\n";
        for (const auto& option : options_) {
            const std::string letter(1, option->shortName());
            text += option->shortName() ? "  -" + letter + ", " : "      ";
            text += "--" + option->name();
            text += std::string(longest + GAP - option->name().size(), ' ');
            text += option->description() + "\n";
        }
        return text;
    }

  private:
    static constexpr size_t GAP = 4;  // columns between the longest name and the descriptions

    void declare(std::unique_ptr<detail::Option> option) {
        if (find(option->name()))
            throw std::logic_error("option is declared twice: --" + option->name());
        options_.push_back(std::move(option));
    }

    detail::Option* find(const std::string& name) const {
        for (const auto& option : options_) {
            if (option->name() == name)
                return option.get();
        }
        return nullptr;
    }

    const detail::Option& declared(const std::string& name) const {
        const detail::Option* const option = find(name);
        if (!option)
            throw std::logic_error("option is not declared: --" + name);
        return *option;
    }

    // "--name", "--name=value" or "--name" and the next word.
    void parseLong(const std::vector<std::string>& words, size_t& i) {
        const std::string& word = words[i];
        const size_t equals = word.find('=');
        const std::string name = word.substr(2, equals == word.npos ? equals : equals - 2);
        detail::Option* const option = find(name);
        if (!option)
            errors_.push_back("undefined option: --" + name);
        else if (equals != word.npos)
            setValue(*option, word.substr(equals + 1));
        else
            setFromNext(*option, words, i);
    }

    // "-n" and the next word, or any number of flags behind one hyphen.
    void parseShort(const std::vector<std::string>& words, size_t& i) {
        const std::string letters = words[i].substr(1);
        for (size_t k = 0; k < letters.size(); ++k) {
            detail::Option* const option = findShort(letters[k]);
            if (!option)
                continue;
            if (option->takesValue() && k + 1 < letters.size())
                errors_.push_back("option needs value: --" + option->name());
            else
                setFromNext(*option, words, i);
        }
    }

    // Null, with an error text, unless exactly one option has the letter.
    detail::Option* findShort(char letter) {
        detail::Option* found = nullptr;
        for (const auto& option : options_) {
            if (option->shortName() != letter)
                continue;
            if (found) {
                errors_.push_back(std::string("ambiguous short option: -") + letter);
                return nullptr;
            }
            found = option.get();
        }
        if (!found)
            errors_.push_back(std::string("undefined short option: -") + letter);
        return found;
    }

    void setFromNext(detail::Option& option, const std::vector<std::string>& words, size_t& i) {
        if (!option.takesValue())
            option.mark();
        else if (i + 1 < words.size())
            setValue(option, words[++i]);
        else
            errors_.push_back("option needs value: --" + option.name());
    }

    void setValue(detail::Option& option, const std::string& text) {
        if (option.set(text))
            option.mark();
        else
            errors_.push_back("option value is invalid: --" + option.name() + "=" + text);
    }

    std::string program_name_;
    std::vector<std::unique_ptr<detail::Option>> options_;  // in the order of the help text
    std::vector<std::string> errors_;
};

}  // namespace cmdline

#endif
