#include "Generate.hpp"

#include <CLI/CLI.hpp>
#include <boost/algorithm/string.hpp>

#include "Terminal.hpp"

namespace {

// The parts of a file: {c} is a subcommand, {o} an option, {v} how a value is asked for, {h} what either is for.
struct Form {
  std::string head;
  std::string name;  // for each subcommand
  std::string names;
  std::string command;  // for each subcommand, with its options and its end
  std::string option;
  std::string value;  // {v} of an option that takes one
  std::string end;
  std::string tail;
  std::vector<std::pair<std::string, std::string>> escapes;  // in {h}
};

const std::map<std::string, Form> forms{
    {"bash",
     {"_halvern() {\n  local words='",
      "{c} ",
      "'\n  ((COMP_CWORD == 1)) || case ${COMP_WORDS[1]} in\n",
      "    {c}) words='",
      "--{o} ",
      "",
      "' ;;\n",
      "  esac\n  COMPREPLY=($(compgen -W \"$words\" -- \"${COMP_WORDS[COMP_CWORD]}\"))\n}\n"
      "complete -o default -F _halvern halvern\n",
      {}}},
    {"zsh",
     {"#compdef halvern\nlocal -a commands=(\n",
      "  '{c}:{h}'\n",
      ")\n((CURRENT == 2)) && { _describe subcommand commands; return }\nlocal command=$words[2]\nshift words\n"
      "((--CURRENT))\ncase $command in\n",
      "  {c}) _arguments",
      " \\\n    '--{o}[{h}]{v}'",
      ":value:_files",
      " ;;\n",
      "esac\n",
      {{"'", "'\\''"}, {":", "\\:"}, {"[", "\\["}, {"]", "\\]"}}}},
    {"fish",
     {"",
      "complete -c halvern -f -n __fish_use_subcommand -a {c} -d '{h}'\n",
      "",
      "",
      "complete -c halvern -n '__fish_seen_subcommand_from {c}' -l {o}{v} -d '{h}'\n",
      " -r",
      "",
      "",
      {{"'", "\\'"}}}},
    {"man",
     {".TH HALVERN 1 \"\" \"halvern " HALVERN_VERSION "\"\n.SH NAME\nhalvern \\- account and hearing-aid web service\n"
      ".SH SYNOPSIS\n.nf\n",
      "halvern {c} [OPTIONS]\n",
      ".fi\n.SH SUBCOMMANDS\n",
      ".SS {c}\n{h}.\n",
      ".TP\n.B \\-\\-{o}{v}\n{h}.\n",
      " VALUE",
      "",
      std::string(".SH EXIT STATUS\n.nf\n") + status::help + '\n',
      {{"-", "\\-"}}}},
};

}  // namespace

std::vector<const CLI::App*> subcommands(const CLI::App& app) {
  return app.get_subcommands([](const CLI::App* command) { return !command->get_group().empty(); });
}

std::string generate(const CLI::App& app, const std::string& name) {
  const Form& form = forms.at(name);
  const auto fill = [&](std::string part, const CLI::App& command, std::string help, const std::string& option = "",
                        const std::string& value = "") {
    for (const auto& [from, to] : form.escapes) boost::replace_all(help, from, to);
    const std::pair<const char*, std::string> fields[] = {
        {"{c}", command.get_name()}, {"{o}", option}, {"{v}", value}, {"{h}", help}};
    for (const auto& [field, text] : fields) boost::replace_all(part, field, text);
    return part;
  };
  const auto commands = subcommands(app);
  std::string text = form.head;
  for (const CLI::App* const command : commands) text += fill(form.name, *command, command->get_description());
  text += form.names;
  for (const CLI::App* const command : commands) {
    text += fill(form.command, *command, command->get_description());
    for (const CLI::Option* const option : command->get_options()) {
      std::string help = option->get_description();
      if (name == "man" && !option->get_envname().empty()) help += "; or the variable " + option->get_envname();
      if (name == "man" && !option->get_default_str().empty()) help += " [" + option->get_default_str() + ']';
      text += fill(form.option, *command, help, option->get_lnames()[0],
                   option->get_items_expected_max() > 0 ? form.value : "");
    }
    text += form.end;
  }
  return text + form.tail;
}
