#include "Generate.hpp"

#include <CLI/CLI.hpp>
#include <boost/algorithm/string.hpp>

#include "Terminal.hpp"

namespace {

// The templates of one file. {c} is replaced by a subcommand, {o} by an option with its dashes, {v} by the value that
// the option takes, {w} by its possible values, {h} by the help of the subcommand or option, {e} by an example.
struct Form {
  std::string head;
  std::string name;  // for each subcommand
  std::string names;
  std::string command;  // for each subcommand, followed by its options and `end`
  std::string option;
  std::string file, choice, value;  // {v} of an option that takes a file, one of several values, or anything else
  std::string argument;             // a positional argument, which is a file
  std::string end;
  std::string tail;
  std::vector<std::pair<std::string, std::string>> escapes;  // in {h}
};

const std::map<std::string, Form> forms{
    {"bash",
     {.head = "_halvern() {\n  local words='",
      .name = "{c} ",
      .names = "help version' current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD-1]}\n"
               "  ((COMP_CWORD == 1)) || case ${COMP_WORDS[1]} in\n",
      .command = "    {c}) words='",
      .option = "{o}{v} ",
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
)END",
      .escapes = {}}},
    {"zsh",
     {.head = "#compdef halvern\nlocal -a commands=(\n",
      .name = "  '{c}:{h}'\n",
      .names = "  help version\n)\n((CURRENT == 2)) && { _describe subcommand commands; return }\nlocal "
               "command=$words[2]\nshift words\n"
               "((--CURRENT))\ncase $command in\n",
      .command = "  {c}) _arguments",
      .option = " \\\n    '{o}[{h}]{v}'",
      .file = ":file:_files",
      .choice = ":value:({w})",
      .value = ":value: ",
      .argument = " \\\n    '1:file:_files'",
      .end = " ;;\n",
      .tail = "esac\n",
      .escapes = {{"'", "'\\''"}, {":", "\\:"}, {"[", "\\["}, {"]", "\\]"}}}},
    {"fish",
     {.head = "complete -c halvern -f\n",
      .name = "complete -c halvern -n __fish_use_subcommand -a {c} -d '{h}'\n",
      .names = "complete -c halvern -n __fish_use_subcommand -a 'help version'\n",
      .command = "",
      .option = "complete -c halvern -n '__fish_seen_subcommand_from {c}' -l {o}{v} -d '{h}'\n",
      .file = " -r -F",
      .choice = " -x -a '{w}'",
      .value = " -x",
      .argument = "complete -c halvern -n '__fish_seen_subcommand_from {c}' -F\n",
      .end = "",
      .tail = "",
      .escapes = {{"'", "\\'"}}}},
    {"man",
     {.head = ".TH HALVERN 1 \"\" \"halvern " HALVERN_VERSION "\"\n.SH NAME\nhalvern \\- account and hearing-aid web "
              "service\n.SH SYNOPSIS\n.nf\n",
      .name = "halvern {c} [OPTIONS]\n",
      .names = ".fi\n.SH SUBCOMMANDS\n",
      .command = ".SS {c}\n{h}.\n",
      .option = ".TP\n.B {o}{v}\n{h}.\n",
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

// The possible values of the option, or the type of its value.
std::string wordsOf(const CLI::Option& option, const std::string& between) {
  const std::string type = option.get_type_name();
  // A colon separates the type from the range.
  return boost::replace_all_copy(type.substr(0, type.find(':')), "|", between);
}

const std::string& valueOf(const Form& form, const CLI::Option& option) {
  static const std::string nothing;
  const std::string type = option.get_type_name();
  if (option.get_items_expected_max() == 0) return nothing;
  return type == "FILE" ? form.file : boost::contains(type, "|") ? form.choice : form.value;
}

std::string exampleOf(const CLI::App& command) {
  const std::string footer = command.get_footer(), start = "Example:\n";
  return footer.substr(start.size(), footer.find("\n\n") - start.size());
}

}  // namespace

std::string generate(const CLI::App& app, const std::string& name) {
  const Form& form = forms.at(name);
  const auto escaped = [&](std::string words) {
    for (const auto& [from, to] : form.escapes) boost::replace_all(words, from, to);
    return words;
  };
  const auto fill = [&](std::string part, const CLI::App& command, const std::string& help) {
    boost::replace_all(part, "{c}", command.get_name());
    boost::replace_all(part, "{e}", escaped(exampleOf(command)));
    return boost::replace_all_copy(part, "{h}", escaped(help));
  };
  // Those that the help shows.
  const auto commands = app.get_subcommands([](const CLI::App* command) { return !command->get_group().empty(); });
  std::string text = form.head;
  for (const CLI::App* const command : commands) text += fill(form.name, *command, command->get_description());
  text += form.names;
  for (const CLI::App* const command : commands) {
    text += fill(form.command, *command, command->get_description());
    for (const CLI::Option* const option : command->get_options()) {
      std::string help = option->get_description();
      if (name == "man" && !option->get_envname().empty()) help += "; or the variable " + option->get_envname();
      if (name == "man" && !option->get_default_str().empty()) help += " [" + option->get_default_str() + ']';
      if (name == "man" && help.empty()) continue;  // the positional argument describes it
      std::string part = option->get_positional() ? form.argument : form.option;
      const std::string dashes = name == "fish" ? "" : name == "man" ? "\\-\\-" : "--";
      boost::replace_all(part, "{v}", valueOf(form, *option));
      boost::replace_all(part, "{w}", wordsOf(*option, name == "bash" || name == "man" ? "|" : " "));
      const bool isRepeatable = option->get_multi_option_policy() == CLI::MultiOptionPolicy::TakeAll;
      const std::string star = name == "zsh" && isRepeatable ? "*" : "";
      if (!option->get_positional()) boost::replace_all(part, "{o}", star + dashes + option->get_lnames()[0]);
      text += fill(part, *command, help);
    }
    text += fill(form.end, *command, "");
  }
  return text + form.tail;
}
