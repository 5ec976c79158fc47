#include "Generate.hpp"

#include <CLI/CLI.hpp>
#include <boost/algorithm/string.hpp>

#include "Terminal.hpp"

namespace {

using Replacements = std::vector<std::pair<std::string, std::string>>;

// The templates of one file. In those of a subcommand, {c} is replaced by its name, {h} by its help and {e} by an
// example. In those of an option, {o} is replaced by its name, {h} by its help, {d} by its variable and its default,
// {v} by the value that it takes, {w} by its possible values with | between them, {b} by the same with blanks, {r} by *
// if it can be repeated, and {c} by the subcommand.
struct Form {
  std::string head;
  std::string name;  // for each subcommand
  std::string names;
  std::string command{};  // for each subcommand, followed by its options and `end`
  std::string option;
  std::string file, choice, value;  // {v} of an option that takes a file, one of several values, or anything else
  std::string argument;             // a positional argument, which is a file
  std::string end{};
  std::string tail{};
  Replacements escapes{};  // in {h}, {d} and {e}
};

const std::map<std::string, Form> forms{
    {"bash",
     {.head = "_halvern() {\n  local words='",
      .name = "{c} ",
      .names = "help version' current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD-1]}\n"
               "  ((COMP_CWORD == 1)) || case ${COMP_WORDS[1]} in\n",
      .command = "    {c}) words='",
      .option = "--{o}{v} ",
      .file = ":FILE",
      .choice = ":{w}",
      .value = ":",
      .argument = "FILE ",
      .end = "' ;;\n",
      .tail = R"END(  esac
  # An option that takes a value is followed by a colon, and by the possible values if they can be completed.
  case " $words" in
    *" $previous:FILE "*) words=FILE ;;
    *" $previous:"*) words=${words#*"$previous:"} words=${words%% *} words=${words//|/ } ;;
    *) [[ $current != -* ]] || words=${words/ FILE / } ;;
  esac
  COMPREPLY=($(compgen -W "$(sed 's/:[^ ]*//g' <<<"$words")" -- "$current"))
  [[ " $words " != *" FILE "* ]] || mapfile -t COMPREPLY < <(compgen -f -- "$current")
}
complete -o filenames -F _halvern halvern
)END"}},
    {"zsh",
     {.head = "#compdef halvern\nlocal -a commands=(\n",
      .name = "  '{c}:{h}'\n",
      .names = "  help version\n)\n((CURRENT == 2)) && { _describe subcommand commands; return }\nlocal "
               "command=$words[2]\nshift words\n"
               "((--CURRENT))\ncase $command in\n",
      .command = "  {c}) _arguments",
      .option = " \\\n    '{r}--{o}[{h}]{v}'",
      .file = ":file:_files",
      .choice = ":value:({b})",
      .value = ":value: ",
      .argument = " \\\n    '1:file:_files'",
      .end = " ;;\n",
      .tail = "esac\n",
      .escapes = {{"'", "'\\''"}, {":", "\\:"}, {"[", "\\["}, {"]", "\\]"}}}},
    {"fish",
     {.head = "complete -c halvern -f\n",
      .name = "complete -c halvern -n __fish_use_subcommand -a {c} -d '{h}'\n",
      .names = "complete -c halvern -n __fish_use_subcommand -a 'help version'\n",
      .option = "complete -c halvern -n '__fish_seen_subcommand_from {c}' -l {o}{v} -d '{h}'\n",
      .file = " -r -F",
      .choice = " -x -a '{b}'",
      .value = " -x",
      .argument = "complete -c halvern -n '__fish_seen_subcommand_from {c}' -F\n",
      .escapes = {{"'", "\\'"}}}},
    {"man",
     {.head = ".TH HALVERN 1 \"\" \"halvern " HALVERN_VERSION "\"\n.SH NAME\nhalvern \\- account and hearing-aid web "
              "service\n.SH SYNOPSIS\n.nf\n",
      .name = "halvern {c} [OPTIONS]\n",
      .names = ".fi\n.SH SUBCOMMANDS\n",
      .command = ".SS {c}\n{h}.\n",
      .option = ".TP\n.B \\-\\-{o}{v}\n{h}{d}.\n",
      .file = " FILE",
      .choice = " {w}",
      .value = " {w}",
      .argument = ".TP\n.B FILE\n{h}.\n",
      .end = ".PP\nExample:\n.PP\n.nf\n{e}\n.fi\n",
      .tail = std::string(R"(.SH ENVIRONMENT
.TP
.B HALVERN_...
Values of the options whose text names such a variable. An option has precedence. The line end of a
secret is removed.
.TP
.B NO_COLOR
If it is not empty, charts have no colour.
.SH FILES
The file name \- means standard input or standard output, except for \-\-ca\-file. Only the first line of a file with a
secret is used. If \-\-left\-out, \-\-right\-out or \-\-chart is \-, the answer itself is not printed.
.PP
Output files of an earlier run are removed before the call. The files of the two configurations appear together, when
both are complete. If the service has no configuration for an ear, there is no file for this ear.
.SH EXIT STATUS
.nf
)") + status::help +
              '\n',
      .escapes = {{"-", "\\-"}}}},
};

std::string replaced(std::string words, const Replacements& replacements) {
  for (const auto& [from, to] : replacements) boost::replace_all(words, from, to);
  return words;
}

// The possible values of the option, or the type of its value. A colon separates the type from the range.
std::string valuesOf(const CLI::Option& option) {
  const std::string type = option.get_type_name();
  return type.substr(0, type.find(':'));
}

std::string valueOf(const Form& form, const CLI::Option& option) {
  if (option.get_items_expected_max() == 0) return {};
  if (option.get_type_name() == "FILE") return form.file;
  return boost::contains(option.get_type_name(), "|") ? form.choice : form.value;
}

std::string exampleOf(const CLI::App& command) {
  const std::string footer = command.get_footer(), start = "Example:\n";
  return footer.substr(start.size(), footer.find("\n\n") - start.size());
}

}  // namespace

std::string generate(const CLI::App& app, const std::string& name) {
  const Form& form = forms.at(name);
  const auto escaped = [&](const std::string& words) { return replaced(words, form.escapes); };
  const auto described = [&](const std::string& part, const CLI::App& command) {
    return replaced(part, {{"{c}", command.get_name()},
                           {"{e}", escaped(exampleOf(command))},
                           {"{h}", escaped(command.get_description())}});
  };
  // The subcommands that the help shows.
  const auto commands = app.get_subcommands([](const CLI::App* command) { return !command->get_group().empty(); });
  std::string file = form.head;
  for (const CLI::App* const command : commands) file += described(form.name, *command);
  file += form.names;
  for (const CLI::App* const command : commands) {
    file += described(form.command, *command);
    for (const CLI::Option* const option : command->get_options()) {
      // The positional argument of the same name describes such an option.
      if (name == "man" && option->get_description().empty()) continue;
      std::string details;
      if (!option->get_envname().empty()) details += "; or the variable " + option->get_envname();
      if (!option->get_default_str().empty()) details += " [" + option->get_default_str() + ']';
      const bool isRepeatable = option->get_multi_option_policy() == CLI::MultiOptionPolicy::TakeAll;
      const std::string values = valuesOf(*option);
      file +=
          replaced(option->get_positional() ? form.argument : form.option, {{"{v}", valueOf(form, *option)},
                                                                            {"{w}", values},
                                                                            {"{b}", replaced(values, {{"|", " "}})},
                                                                            {"{r}", isRepeatable ? "*" : ""},
                                                                            {"{o}", option->get_single_name()},
                                                                            {"{c}", command->get_name()},
                                                                            {"{h}", escaped(option->get_description())},
                                                                            {"{d}", escaped(details)}});
    }
    file += described(form.end, *command);
  }
  return file + form.tail;
}
