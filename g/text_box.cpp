// placeholder: filled in by the toolkit work in progress
