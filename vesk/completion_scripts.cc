// vesk completion
#include <memory>

#include "vesk/commands.h"
#include "vesk/completion.h"
#include "vesk/output.h"

namespace command {
namespace {

struct Script {
  const char *shell;
  const char *text;
};

// Each hands the line to "vesk complete", whatever it is about, and its answer to the shell.
constexpr Script kScripts[] = {
    {"bash", R"script(# Completion of vesk for bash.
_vesk() {
  local line=${COMP_LINE:0:COMP_POINT} rest word words=() lines i
  # bash breaks words at = and : too. What no blank separates is one word.
  for ((i = 0; i <= COMP_CWORD; i++)); do
    rest=${line#"${line%%[![:blank:]]*}"}
    word=${COMP_WORDS[i]}
    ((i < COMP_CWORD)) || word=$rest
    if ((i > 0)) && [[ $rest == "$line" ]]; then
      words[${#words[@]} - 1]+=$word
    else
      words+=("$word")
    fi
    line=${rest#"$word"}
  done
  # Behind such a character begins what bash puts its choice in the place of.
  [[ -n ${word//["$COMP_WORDBREAKS"]/} || $word == [\'\"]* ]] || word=
  local last=${words[${#words[@]} - 1]}
  mapfile -t lines < <(command vesk complete bash "${last%"$word"}" "${words[@]}" 2> /dev/null)
  case ${lines[0]-} in
    files) compopt -o default ;;
    directories) compopt -o dirnames ;;
    words) COMPREPLY=("${lines[@]:1}") && COMPREPLY=("${COMPREPLY[@]%%$'\t'*}") ;;
  esac
}
complete -F _vesk vesk
)script"},
    {"zsh", R"script(#compdef vesk
# Completion of vesk for zsh.
_vesk() {
  local -a lines texts shown
  local line
  lines=("${(@f)$(command vesk complete zsh '' "${(@)words[1,CURRENT-1]}" "$QIPREFIX$IPREFIX$PREFIX" 2> /dev/null)}")
  case $lines[1] in
    files) compset -P '--*=' ; _files ;;
    directories) compset -P '--*=' ; _files -/ ;;
    words)
      for line in "${(@)lines[2,-1]}"; do
        texts+=("${line%%$'\t'*}")
        shown+=("${line/$'\t'/  -- }")
      done
      if [[ "$shown" == *'  -- '* ]]; then compadd -l -d shown -a texts; else compadd -a texts; fi
      ;;
  esac
}
if [[ ${funcstack[1]-} == _vesk ]]; then _vesk "$@"; else compdef _vesk vesk; fi
)script"},
    {"fish", R"script(# Completion of vesk for fish.
function __vesk_complete
    set -l token (commandline -ct)
    set -l lines (command vesk complete fish '' (commandline -opc) "$token" 2> /dev/null)
    set -l kind $lines[1]
    set -e lines[1]
    set -l option (string match -r -- '^--[^=]*=' "$token")
    set -l path (string replace -r -- '^--[^=]*=' '' "$token")
    switch "$kind"
        case files
            set lines (__fish_complete_path "$path")
        case directories
            set lines (__fish_complete_directories "$path" '')
    end
    switch "$kind"
        case files directories
            set lines "$option"$lines
    end
    test (count $lines) -gt 0; and printf '%s\n' $lines
end
complete -c vesk -f -a '(__vesk_complete)'
)script"},
};

void write_script(const std::string &shell) {
  for (const Script &script : kScripts) {
    if (shell == script.shell) write_standard_output(script.text);
  }
}

}  // namespace

void add_completion(Command &root) {
  Command &command = root.add("completion", "Write the script that has a shell complete command lines");
  auto shell = std::make_shared<std::string>();
  Option &argument = command.argument("SHELL", shell.get(), Kind::kText, "bash, zsh or fish");
  for (const Script &script : kScripts) argument.choices.emplace_back(script.shell);
  command.details =
      "Commands, options, files, contexts and the names that the server keeps are completed. When a name is to be\n"
      "completed, the server that the line, the environment or the current context means is asked, for a second or as\n"
      "many as VESK_COMPLETION_SECONDS says. Of more than 1000 names none is offered until more is typed.";
  command.examples = {"source <(vesk completion bash)", "vesk completion zsh > \"${fpath[1]}/_vesk\"",
                      "vesk completion fish > ~/.config/fish/completions/vesk.fish"};
  command.run = [shell] { write_script(*shell); };
}

}  // namespace command
