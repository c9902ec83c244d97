// Work in progress.
