// Templates, by which users choose the contents of a line.
//
//     {{artist}} - {{title}}
//     {{group("[", duration(length), "] ")}}{{default(title, name)}}\n
//
// Text stands for itself; \n, \t, \\ and \{ are escapes. Between {{ and }} stands an expression: a
// field, a text in quotation marks, a number, a function of expressions, or arithmetic with them.
// An empty value counts as absent.
#ifndef VANTRO_TOOLS_VANTROCTL_TEXT_TEMPLATE_H
#define VANTRO_TOOLS_VANTROCTL_TEXT_TEMPLATE_H

#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace vantro::ctl {

// A mistake in a template: what() describes it and its place, in characters from 1.
struct TemplateError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

class Template {
  public:
    // The value of a field, for one line. The value is cleaned before it is shown.
    using Field = std::function<std::string(std::string_view name)>;

    // @param fields the names of fields that the text may use. @throws TemplateError.
    Template(std::string_view text, const std::vector<std::string_view> &fields);

    std::string render(const Field &field) const;

    // The same as a line; "" instead of an empty line.
    std::string line(const Field &field) const;

    // The functions, for the texts that list them.
    static std::string function_names();

    enum class Kind { text, field, call };

    // A part of the template. For a call, `name` is the function or the operator, and `arguments`
    // are its arguments.
    struct Part {
        Kind kind;
        std::string name = {}; // Of a text the text itself.
        std::vector<Part> arguments = {};
    };

  private:
    std::vector<Part> parts_;
};

} // namespace vantro::ctl

#endif
