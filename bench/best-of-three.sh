# Sourced by the side-by-side scripts: `best COMMAND...` runs the command three times and
# prints its best wall time (seconds) and the largest peak resident memory of the runs (MB).
# Needs $dir, a scratch folder.
best() {
    local best="" rss=0 t m
    for _ in 1 2 3; do
        /usr/bin/time -o "$dir/.time" -f '%e %M' "$@" >/dev/null 2>&1
        read -r t m < "$dir/.time"
        if [[ -z $best ]] || awk "BEGIN{exit !($t < $best)}"; then best=$t; fi
        (( m > rss )) && rss=$m
    done
    echo "$best $((rss / 1024))"
}
