"""Turns the table catalogue (one TOML file a table) into C++ units, and refuses a catalogue that is wrong."""
