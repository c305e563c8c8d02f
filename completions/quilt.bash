# Made by docs/make_pages.py from src/front/option_words.cpp.
_quilt() {
    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]} dash=
    before=${before,,}
    COMPREPLY=()
    [[ $word != -* ]] || before=
    case ${before/#--/-} in
    -sdb|-partition|-vss|-pe|-reg|-diff|-known|-knowledge|-out|-outfile|-diags|-sqlite|-sqlite_log)
        compopt -o filenames
        mapfile -t COMPREPLY < <(compgen -f -- "$word")
        return
        ;;
    -enumdir|-outdir)
        compopt -o filenames
        mapfile -t COMPREPLY < <(compgen -d -- "$word")
        return
        ;;
    -num_subdirs|-filter|-filter_sig|-cmd_start_time|-cmd_stop_time|-tag|-strings|-guid|-tagids|-patchbytes|-dateformat|-timeformat|-csv_separator|-hostname|-username|-threads|-signal|-filter_skip|-filter_path|-alias|-aliaspath|-zlibex|-cpu|-cpuinst|-fragment_files)
        return
        ;;
    -color)
        mapfile -t COMPREPLY < <(compgen -W 'always never auto' -- "$word")
        return
        ;;
    -only)
        mapfile -t COMPREPLY < <(compgen -W 'high medium low' -- "$word")
        return
        ;;
    -family)
        mapfile -t COMPREPLY < <(compgen -W 'apphelp block data driver elevate engine fix hide inject lib msi patch place redirect reg shape target time weaken who' -- "$word")
        return
        ;;
    esac
    [[ $word != --* ]] || dash=-
    mapfile -t COMPREPLY < <(compgen -P "$dash" -W '-sdb -partition -by_content -deleted -vss -pe -reg -no_logs -pipe -enumdir -num_subdirs -filter -filter_sig -cmd_start_time -cmd_stop_time -apps -exes -fixes -shims -patches -tag -guids -stringtable -stats -listsdb -enumsdb -match -explain -diff -strings -guid -tagids -patchbytes -known -only -family -knowledge -csv -csvgen -csvl2t -bodyfile -xml -multiline -timesketch -json -html -dateformat -timeformat -pair_datetime -base10 -base16 -csv_separator -enable_quoted_csv_fields -safe_csv -no_whitespace -no_header -hostname -username -out -outfile -append -diags -threads -color -quiet -profile -signal -help -h -? -version' -- "${word#"$dash"}")
}
complete -F _quilt quilt
