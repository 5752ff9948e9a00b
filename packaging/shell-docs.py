#!/usr/bin/env python3
"""Writes a program's manual page and its bash and zsh completion from its --help text.

The help text is the one source: usage lines, a blank line, a one-line summary, description
paragraphs, then sections whose first line is a title ending with ":" and whose entries are indented
by two spaces ("  TERM" with the description on the next lines indented by six, or "  TERM  text").
A "Commands:" section makes a command-style completion (the command first, then its options);
without one, the completion offers the options and the files the usage names.

usage: shell-docs.py PROGRAM OUTPUT_FOLDER VERSION DATE
"""

import gzip
import re
import subprocess
import sys
from pathlib import Path


def parse(help_text):
    paragraphs = [p.rstrip("\n").split("\n") for p in re.split(r"\n\s*\n", help_text.strip("\n"))]
    synopsis = [re.sub(r"^(usage:)?\s*", "", line) for line in paragraphs[0]]
    summary = paragraphs[1][0].rstrip(".")
    description, sections = [], []
    for lines in paragraphs[2:]:
        if re.match(r"^\S.*:$", lines[0]):
            entries = []
            for line in lines[1:]:
                if line.startswith("      ") and entries:
                    entries[-1][1].append(line.strip())
                else:
                    term, _, text = line.strip().partition("  ")
                    entries.append((term.strip(), [text.strip()] if text.strip() else []))
            sections.append((lines[0][:-1], [(term, " ".join(text)) for term, text in entries]))
        else:
            description.append(" ".join(line.strip() for line in lines))
    return synopsis, summary, description, sections


def roff(text):
    text = text.replace("\\", "\\e").replace("-", "\\-")
    return "\\&" + text if text[:1] in (".", "'") else text


def manual_page(program, version, date, synopsis, summary, description, sections):
    out = [f'.TH {program.upper()} 1 "{date}" "Fiva {version}" "User Commands"',
           ".SH NAME", f"{roff(program)} \\- {roff(summary[0].lower() + summary[1:])}",
           ".SH SYNOPSIS"]
    for i, line in enumerate(synopsis):
        if i:
            out.append(".br")
        name, _, rest = line.partition(" ")
        out.append(f"\\fB{roff(name)}\\fR {roff(rest)}".rstrip())
    out.append(".SH DESCRIPTION")
    for i, paragraph in enumerate(description):
        if i:
            out.append(".PP")
        out.append(roff(paragraph))
    for title, entries in sections:
        out.append(f".SH {title.upper()}")
        for term, text in entries:
            name, _, rest = term.partition(" ")
            out += [".TP", f"\\fB{roff(name)}\\fR {roff(rest)}".rstrip(), roff(text)]
    return "\n".join(out) + "\n"


def words_of(usage):
    """The options, the literal words and each option's values in a usage line."""
    options, keywords, values = [], [], {}
    previous = ""
    for raw in usage.replace("[", " ").replace("]", " ").split():
        if previous.startswith("--") and re.fullmatch(r"[a-z]+(\|[a-z]+)+", raw):
            values[previous] = raw.split("|")
            continue
        for word in raw.split("|"):
            if word.startswith("--"):
                options.append(word)
            elif re.fullmatch(r"[a-z][a-z-]*", word):
                keywords.append(word)
        previous = raw
    return options, keywords, values


def bash_name(program):
    return "_" + re.sub(r"\W", "_", program)


def command_completions(program, commands):
    table = {}
    for term, text in commands:
        name, _, usage = term.partition(" ")
        table[name] = (text, *words_of(usage))
    fn = bash_name(program)
    bash = [f"# bash completion for {program}, generated from `{program} --help`.",
            f"{fn}()", "{",
            "    local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD-1]}",
            "    local options='' keywords=''",
            "    if [[ $COMP_CWORD -eq 1 ]]; then",
            f"        COMPREPLY=($(compgen -W '{' '.join(table)} --help --version' -- \"$cur\"))",
            "        return",
            "    fi",
            "    case ${COMP_WORDS[1]} in"]
    for name, (_, options, keywords, values) in table.items():
        bash.append(f"        {name}) options='{' '.join(options)}'; keywords='{' '.join(keywords)}' ;;")
    bash += ["    esac", "    case $prev in"]
    all_values = {}
    for _, (_, _, _, values) in table.items():
        all_values.update(values)
    for option, choices in all_values.items():
        bash.append(f"        {option}) COMPREPLY=($(compgen -W '{' '.join(choices)}' -- \"$cur\")); return ;;")
    bash += ["    esac",
             "    if [[ $cur == -* ]]; then",
             "        COMPREPLY=($(compgen -W \"$options --help\" -- \"$cur\"))",
             "    else",
             "        [[ $COMP_CWORD -eq 2 ]] && COMPREPLY=($(compgen -W \"$keywords\" -- \"$cur\"))",
             "        COMPREPLY+=($(compgen -f -- \"$cur\"))",
             "    fi",
             "}",
             f"complete -o filenames -F {fn} {program}", ""]

    zsh = [f"#compdef {program}", f"# zsh completion for {program}, generated from `{program} --help`.",
           "local -a commands options keywords", "commands=("]
    for name, (text, *_rest) in table.items():
        zsh.append("    " + zsh_quote(f"{name}:{text.replace(':', chr(92) + ':')}"))
    zsh += [")",
            "if (( CURRENT == 2 )); then",
            "    _describe -t commands command commands",
            "    return",
            "fi",
            "case $words[2] in"]
    for name, (_, options, keywords, _values) in table.items():
        zsh.append(f"    {name}) options=({' '.join(options)}); keywords=({' '.join(keywords)}) ;;")
    zsh += ["esac", "case $words[CURRENT-1] in"]
    for option, choices in all_values.items():
        zsh.append(f"    {option}) compadd -- {' '.join(choices)}; return ;;")
    zsh += ["esac",
            "if [[ $PREFIX == -* ]]; then",
            "    compadd -- $options --help",
            "else",
            "    (( CURRENT == 3 )) && compadd -- $keywords",
            "    _files",
            "fi", ""]
    return "\n".join(bash), "\n".join(zsh)


def option_completions(program, synopsis, options):
    extension = re.search(r"\w\.(\w+)", synopsis[0])
    fn = bash_name(program)
    files = f"compgen -f -X '!*.{extension.group(1)}' -- \"$cur\"" if extension else "compgen -f -- \"$cur\""
    bash = [f"# bash completion for {program}, generated from `{program} --help`.",
            f"{fn}()", "{",
            "    local cur=${COMP_WORDS[COMP_CWORD]}",
            "    if [[ $cur == -* ]]; then",
            f"        COMPREPLY=($(compgen -W '{' '.join(options)}' -- \"$cur\"))",
            "    else",
            f"        COMPREPLY=($({files}) $(compgen -d -- \"$cur\"))",
            "    fi",
            "}",
            f"complete -o filenames -F {fn} {program}", ""]
    pattern = f" -g '*.{extension.group(1)}'" if extension else ""
    zsh = [f"#compdef {program}", f"# zsh completion for {program}, generated from `{program} --help`.",
           "if [[ $PREFIX == -* ]]; then",
           f"    compadd -- {' '.join(options)}",
           "else",
           f"    _files{pattern}",
           "fi", ""]
    return "\n".join(bash), "\n".join(zsh)


def zsh_quote(text):
    return "'" + text.replace("'", "'\\''") + "'"


def main():
    path, folder, version, date = sys.argv[1:]
    program = Path(path).name
    help_text = subprocess.run([path, "--help"], check=True, capture_output=True, encoding="utf-8").stdout
    synopsis, summary, description, sections = parse(help_text)
    folder = Path(folder)
    folder.mkdir(parents=True, exist_ok=True)
    page = manual_page(program, version, date, synopsis, summary, description, sections)
    (folder / f"{program}.1").write_text(page, encoding="utf-8")
    # Compressed without a name or a date in the header, so that two builds give the same bytes.
    with open(folder / f"{program}.1.gz", "wb") as raw:
        with gzip.GzipFile(filename="", mode="wb", compresslevel=9, fileobj=raw, mtime=0) as packed:
            packed.write(page.encode("utf-8"))
    by_title = dict(sections)
    if "Commands" in by_title:
        bash, zsh = command_completions(program, by_title["Commands"])
    else:
        bash, zsh = option_completions(program, synopsis, [term for term, _ in by_title.get("Options", [])])
    (folder / f"{program}.bash").write_text(bash, encoding="utf-8")
    (folder / f"_{program}").write_text(zsh, encoding="utf-8")


if __name__ == "__main__":
    main()
