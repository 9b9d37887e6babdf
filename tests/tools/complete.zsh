# Prints zsh's completions of a text, one on each line: an interactive zsh on its own terminal gets
# the text and a tab, and the matching candidates are read when the completion adds them.
#   zsh -f complete.zsh DIRECTORY-OF-THE-FUNCTION TEXT
zmodload zsh/zpty
zpty shell "zsh -f -i"
zpty -w shell "PS1=; unsetopt zle_bracketed_paste; fpath=($1 \$fpath); autoload -U compinit && compinit -u -D"
zpty -w shell 'compadd() {
    local -a matches
    builtin compadd -A matches "$@"
    (( ${#matches} )) && print -r -- "<match>${(pj:<end>\n<match>:)matches}<end>"
    return 1
}'
zpty -w shell 'finished() { zle complete-word; print -r -- "<finished>"; exit }; zle -N finished; bindkey "^I" finished'
zpty -w shell 'print -r -- "<""ready>"'
zpty -r shell said '*<ready>*'
zpty -w -n shell "$2"$'\t'
zpty -r shell said '*<finished>*'
for line in ${(f)said}; do
    [[ $line == *'<match>'*'<end>'* ]] && print -r -- ${${line#*<match>}%%<end>*}
done
true
