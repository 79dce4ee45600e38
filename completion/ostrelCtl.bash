# Completes the command lines of ostrelCtl and ostrelDbTool: commands, options, and names from the database
# files, which ostrelDbTool reads. Needs nothing but bash. When something fails there is nothing to offer, and
# nothing is said.

# Splits a command line as the shell would, but expands nothing. Sets words (the last one is being typed), typed
# (that one as it stands in the line), quote (the one that is open) and redirected (that word is a file).
_ostrelSplit() {
    local line=$1 word='' char i
    words=() typed='' quote='' redirected=''
    for ((i = 0; i < ${#line}; i++)); do
        char=${line:i:1}
        case $quote$char in
            "''" | '""') quote='' typed+=$char ;;
            "'"?) word+=$char typed+=$char ;;
            \\ | '"\')
                ((++i))
                typed+=$char${line:i:1}
                [[ $quote && ${line:i:1} != [\"\\\$\`] ]] && word+=$char
                word+=${line:i:1}
                ;;
            '"'?) word+=$char typed+=$char ;;
            "'" | '"') quote=$char typed+=$char ;;
            [[:blank:]] | [\<\>])
                # What stands before a redirection may be the number of its file.
                [[ $char == [\<\>] && $typed =~ ^[0-9]+$ ]] && typed=''
                if [[ $typed ]]; then
                    [[ $redirected ]] || words+=("$word")
                    redirected=''
                fi
                [[ $char == [\<\>] ]] && redirected=yes
                word='' typed=''
                ;;
            *) word+=$char typed+=$char ;;
        esac
    done
    words+=("$word")
}

# The names of a kind that begin with a prefix. (words, current and files are _ostrel's.)
_ostrelNames() {
    local reader=ostrelDbTool
    [[ ${words[0]} == */* ]] && reader=${words[0]%/*}/ostrelDbTool
    "$reader" "${files[@]}" names "$1" -- "${2-}" 2>/dev/null </dev/null
}

# Of members, too, whose index may stand inside.
_ostrelWithoutIndex() {
    sed -E 's/\[[0-9]+\](\.|$)/\1/' | sort -u
}

# NAME[INDEX] for each name of a kind, taken from the keys that begin with NAME and a separator.
_ostrelElements() {
    local name key
    _ostrelNames "$1" | while IFS= read -r name; do
        _ostrelNames keys "$name$2" | while IFS= read -r key; do
            printf '%s[%s\n' "$name" "${key##*[}"
        done | sort -u
    done
}

# What may be the nth argument of a command, one a line.
_ostrelCtlWords() {
    case $1:$2 in
        :*) printf '%s\n' get set erase list count new remove remove-owner apply check watch shutdown doctor ;;
        get:*) _ostrelNames keys "$current" ;;
        set:1)
            _ostrelNames keys "$current"
            # The place of a new element.
            _ostrelNames vectors "$current" | sed 's/$/[/'
            ;;
        set:2) printf '%s\n' Bool Byte Dword IP MAC String ;;
        watch:*) _ostrelNames keys "$current" | _ostrelWithoutIndex ;;
        erase:*) _ostrelNames vectors "$current" && _ostrelNames keys "$current" | grep -Ev '\[[0-9]+\](\.|$)' ;;
        list:1 | count:1) _ostrelNames structures "$current" && _ostrelNames vectors "$current" ;;
        new:1) _ostrelNames templates "$current" ;;
        new:2 | remove-owner:1) _ostrelNames structures "$current" ;;
        remove:*) _ostrelElements structures . && _ostrelElements vectors '[' ;;
    esac
}

_ostrelDbToolWords() {
    case $1:$2 in
        :*) printf '%s\n' check dump diff export names import compact repair ;;
        dump:* | diff:* | export:*) _ostrelNames keys "$current" | _ostrelWithoutIndex ;;
        names:1) printf '%s\n' all keys structures templates vectors ;;
        names:2) _ostrelNames "${words[-2]}" "$current" ;;
    esac
}

_ostrelCtlOptions() {
    printf '%s\n' --help --version --timeout --json
    case $1 in
        set | erase | new | remove | remove-owner | apply) echo --check ;;
        watch) printf '%s\n' --owner --count ;;
        doctor) echo --log ;;
    esac
}

_ostrelDbToolOptions() {
    printf '%s\n' --help --version --root --defaults --templates --live
    case $1 in
        import) printf '%s\n' --replace --force --dry-run ;;
        compact) echo --force ;;
        repair) printf '%s\n' --lines --dry-run ;;
    esac
}

# Puts a name into quoted as it must stand in the line, behind what readline leaves there.
_ostrelQuote() {
    case $quote in
        \') quoted=${1//\'/\'\\\'\'} ;;
        \") quoted=${1//[\\\"\$\`]/\\&} ;;
        *) printf -v quoted %q "$1" ;;
    esac
}

_ostrel() {
    local words typed quote redirected kept quoted word verb='' position=1 option='' files=() found=()
    local tool=${1##*/}
    COMPREPLY=()
    # Readline replaces only what stands behind the last separator of its own, such as ":", or quote.
    _ostrelSplit "${COMP_LINE:0:COMP_POINT}"
    _ostrelSplit "${typed%"$2"}"
    kept=${words[-1]}
    _ostrelSplit "${COMP_LINE:0:COMP_POINT}"
    local current=${words[-1]}
    for word in "${words[@]:1:${#words[@]}-2}"; do
        case $option:$word in
            --root:* | --defaults:* | --templates:* | --live:*) files+=("$option" "$word") option='' ;;
            --*:*) option='' ;;
            :--root=* | :--defaults=* | :--templates=* | :--live=*) files+=("$word") ;;
            :--root | :--defaults | :--templates | :--live | :--timeout | :--log | :--owner | :--count) option=$word ;;
            :-?*) ;;
            *) [[ $verb ]] && ((++position)) || verb=$word ;;
        esac
    done
    case $redirected$option:$tool:$verb:$position in
        --timeout:* | --owner:* | --count:*) return ;;
        yes* | --* | :ostrelCtl:apply:1 | :ostrelCtl:check:1 | :ostrelDbTool:import:1 | :ostrelDbTool:repair:1)
            [[ $redirected$option || $current != -?* ]] && compopt -o default 2>/dev/null && return
            ;;
    esac
    [[ $current == --*=* ]] && compopt -o default 2>/dev/null && return
    local list=Words
    [[ $current == -* ]] && list=Options
    mapfile -t found < <("_$tool$list" "$verb" "$position" 2>/dev/null)
    for word in "${found[@]}"; do
        if [[ $word == "$current"* && ($word != "$current" || $word != *'[') ]]; then
            _ostrelQuote "${word#"$kept"}"
            COMPREPLY+=("$quoted")
        fi
    done
}

complete -F _ostrel ostrelCtl ostrelDbTool
