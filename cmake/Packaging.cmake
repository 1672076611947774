# What is installed, and the packages that are made of it.
