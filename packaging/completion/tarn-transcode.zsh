#compdef tarn-transcode
# Completion for zsh, from the client's own help.

_tarn_transcode() {
  local -a found
  if (( CURRENT == 2 )); then
    found=(${(f)"$(tarn-transcode help 2>/dev/null | sed -nE 's/^  ([a-z][a-z-]*) +(.*)/\1:\2/p')"})
    _describe command found
    return
  fi
  local help="$(tarn-transcode $words[2] --help 2>&1)"
  if [[ $PREFIX == -* ]]; then
    found=(${(uf)"$(grep -o -e '--[a-z][a-z-]*' <<<"$help")"})
    compadd -- $found
  elif [[ $words[CURRENT-1] == -* && $help =~ "[ ,]$words[CURRENT-1](,[a-z-]+)* ([A-Z]+)" ]]; then
    [[ $match[2] == DIR ]] && _files -/
  else
    _files
  fi
}
_tarn_transcode "$@"
