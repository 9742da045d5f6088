# Sourced. The presets of CMakePresets.json and the folder that each builds in.
build_folder() {
    case $1 in
        release) echo build ;;
        debug | asan | tsan | clang | fuzz) echo "build-$1" ;;
        *)
            echo "there is no preset \"$1\"; there are release, debug, asan, tsan, clang and fuzz" >&2
            return 1
            ;;
    esac
}

# How many jobs at once: as many as there are processors, unless DEV_JOBS says otherwise.
job_count() {
    echo "${DEV_JOBS:-$(nproc)}"
}
