"""What the playbooks of this folder do on a device and with what it says."""
