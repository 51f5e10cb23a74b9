// The precompiled header belongs to a target; this one has nothing else.
