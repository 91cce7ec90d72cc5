// Filled in by the work on this subsystem.
