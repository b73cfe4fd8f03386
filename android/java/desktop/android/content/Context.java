package android.content;

/** Desktop stand-in: the binding only passes a Context through. */
public class Context {}
